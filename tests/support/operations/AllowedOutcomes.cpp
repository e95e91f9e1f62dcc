#include "support/operations/AllowedOutcomes.hpp"

#include "support/operations/Rendering.hpp"

#include <utility>

namespace foundation::test {

bool isEmptyAnswer(std::string const& answer, std::string const& /*answerAtRest*/)
{
    return answer.empty();
}

bool isFailedStream(std::string const& answer, std::string const& answerAtRest)
{
    auto const beginning = answer.substr(0, answer.find(streamFailed));
    return beginning.size() < answer.size() && answerAtRest.rfind(beginning, 0) == 0;
}

bool isStricterVerdict(std::string const& answer, std::string const& /*answerAtRest*/)
{
    return answer.rfind("0 ", 0) != 0;
}

bool isStricterVerification(std::string const& answer, std::string const& answerAtRest)
{
    bool const isFromOwnCheck =
        answer == "true 0 certificate verify error" && answerAtRest.rfind("true 0 ", 0) == 0;
    return isFromOwnCheck || answer.rfind("false 7 ", 0) == 0 || answer.rfind("true 1 ", 0) == 0;
}

AllowedOutcomes failsWith(Failures failures, std::size_t stride)
{
    return {std::move(failures), {}, stride};
}

AllowedOutcomes failsWith(Failure failure)
{
    return failsWith(Failures{std::move(failure)});
}

AllowedOutcomes withStride(std::size_t stride, AllowedOutcomes outcomes)
{
    outcomes.stride = stride;
    return outcomes;
}

AllowedOutcomes orEmptyAnswer(AllowedOutcomes outcomes)
{
    outcomes.otherAnswers = isEmptyAnswer;
    return outcomes;
}

AllowedOutcomes orFailedStream(AllowedOutcomes outcomes)
{
    outcomes.otherAnswers = isFailedStream;
    return outcomes;
}

} // namespace foundation::test
