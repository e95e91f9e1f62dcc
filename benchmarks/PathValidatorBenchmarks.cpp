#include "BareValidation.hpp"
#include "Comparison.hpp"
#include "Material.hpp"

#include <foundation/toolkit/PathValidation.hpp>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::benchmarks {

namespace {

using toolkit::Certificate;
using toolkit::PathValidator;

constexpr double target = 1.5;
constexpr std::size_t typicalCount = 150;

/// One task in the form of both sides.
struct Task
{
    Certificate leaf;
    std::vector<Certificate> intermediates;
    PathValidator validator;
    BareTask bare;
};

std::vector<Certificate> valuesOf(std::vector<CertificateAndKey> const& certificates)
{
    std::vector<Certificate> values;
    for (auto const& certificate : certificates) {
        values.push_back(Certificate::fromX509(certificate.certificate.get()));
    }
    return values;
}

/// Makes the same checks as the validator with its defaults.
X509UPtr bareVerify(Task const& task)
{
    BareOptions options;
    options.flags = 0;
    options.securityLevel = 1;
    return benchmarks::bareVerify(task.bare, options);
}

toolkit::PathResult validate(Task const& task)
{
    return task.validator.validate(task.leaf, task.intermediates);
}

Lazy<Task> makeTask(std::size_t rootCount)
{
    return Lazy<Task>([rootCount] {
        auto const trusted = roots(rootCount);
        auto const chain = chainBelow(trusted.front(), 3);
        auto values = valuesOf(chain);
        Task task{
            values.front(),
            {values.begin() + 1, values.end()},
            PathValidator(valuesOf(trusted)),
            makeBareTask(chain, trusted)};
        if (!validate(task).isValid() || bareVerify(task) == nullptr) {
            throw std::logic_error("a validation that is to be measured fails");
        }
        return task;
    });
}

void noteMemoryOf(Comparison const& validation)
{
    std::string const name = "`PathValidator`, chain of 3, 150 roots";
    noteMemory(name + ": allocations", Quantity::Count, validation);
    noteMemory(name + ": bytes allocated", Quantity::Bytes, validation);
    noteMemory(name + ": peak", Quantity::Peak, validation);
}

void addRows()
{
    beginGroup(
        "Toolkit",
        "`PathValidator` shares its roots with all validations, as OpenSSL's side does, and both have "
        "security\n"
        "level 1. What remains is the result: the verdict and the built chain, one reference for each\n"
        "certificate.");
    for (PlotPoint& point : plotPoints()) {
        auto const task = makeTask(point.roots);
        auto const& validation = compare(
            "chain of 3, " + rootsText(point.roots), target, [task] { return validate(*task); },
            [task] { return bareVerify(*task); });
        point.pathValidator = &validation;
        if (point.roots == typicalCount) {
            noteMemoryOf(validation);
        }
    }
}

void addThreads()
{
    auto const task = makeTask(typicalCount);
    for (SharedStoreRow* const row : sharedStoreRows()) {
        measureThreads(
            "Threads/one store/" + std::to_string(row->threads) + "/PathValidator", row->threads,
            row->pathValidator, [task] { return [task] { return validate(*task); }; });
    }
}

} // namespace

void addPathValidatorBenchmarks()
{
    addRows();
    addThreads();
}

} // namespace foundation::benchmarks
