#include "Verdict.hpp"

#include "Terminal.hpp"
#include "Text.hpp"

#include <foundation/toolkit/Explanation.hpp>

namespace foundation::tools {

using toolkit::Certificate;
using toolkit::PathResult;

std::string chainLine(std::vector<Certificate> const& chain)
{
    std::string line;
    for (auto const& member : chain) {
        line += (line.empty() ? "Chain: " : " <- ") + printable(member.getSubject());
    }
    return line + "\n";
}

std::string verdictLines(PathResult const& result)
{
    auto const explanation = explain(result);
    auto const verdict = result.isValid() ? inGreen("Valid") : inRed("Not valid");
    std::string text = verdict + ": " + explanation.message + "\n" + chainLine(result.chain);
    if (!result.isValid() && !explanation.subject.empty()) {
        text += "Certificate: " + printable(explanation.subject) + "\n";
    }
    return text + "Advice: " + explanation.advice + "\n";
}

void addVerdict(JsonObject& record, PathResult const& result)
{
    auto const explanation = explain(result);
    record.addBoolean("valid", result.isValid());
    record.addText("status", toolkit::toString(result.status));
    record.addNumber("errorCode", explanation.errorCode);
    record.addNumber("errorDepth", explanation.depth);
    record.addText("errorSubject", explanation.subject);
    record.addText("message", explanation.message);
    record.addText("advice", explanation.advice);
    std::vector<JsonObject> chain;
    for (auto const& member : result.chain) {
        auto& object = chain.emplace_back();
        object.addText("subject", member.getSubject());
        object.addText("sha256", member.getSHA256Fingerprint());
    }
    record.addObjects("chain", chain);
}

} // namespace foundation::tools
