#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// @file
/// What the threads of a soak do. All threads work on the same objects.

namespace foundation::test {

/// One operation with one answer. Threads may run it at the same time.
struct Task
{
    std::string name;
    /// Returns the answer as a text. An exception is an answer, too.
    std::function<std::string()> run;
};

struct TaskGroup
{
    std::string name;
    /// How often the group is chosen, in proportion to the others.
    int weight = 1;
    std::vector<Task> tasks;
};

/// All groups, and what they use: objects, and a server at port 80.
class Workload
{
public:
    Workload();
    ~Workload();
    Workload(Workload const&) = delete;
    Workload& operator=(Workload const&) = delete;

    std::vector<TaskGroup> const& groups() const { return allGroups; }
    /// Waits until the server has closed its connections, and drops the changes of shared objects.
    void settle();

private:
    struct Material;

    std::unique_ptr<Material> material;
    std::vector<TaskGroup> allGroups;
};

} // namespace foundation::test
