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

void addVerdict(Json& record, PathResult const& result)
{
    auto const explanation = explain(result);
    record["valid"] = result.isValid();
    record["status"] = std::string(toolkit::toString(result.status));
    record["errorCode"] = explanation.errorCode;
    record["errorDepth"] = explanation.depth;
    record["errorSubject"] = explanation.subject;
    record["message"] = explanation.message;
    record["advice"] = explanation.advice;
    record["chain"] = Json::array();
    for (auto const& member : result.chain) {
        record["chain"].push_back(
            {{"subject", member.getSubject()}, {"sha256", member.getSHA256Fingerprint()}});
    }
}

} // namespace foundation::tools
