// measure FILE PROGRAM [ARGUMENT...]: runs the program, and writes its processor time in microseconds and its
// peak memory in bytes to the file. Ends with the program's exit status. It is a program of its own since a
// child's peak memory includes what its parent used before the child's program began.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

long long microsecondsOf(timeval const& time)
{
    return 1000000LL * time.tv_sec + time.tv_usec;
}

} // namespace

int main(int argc, char** argv)
{
    constexpr int noProgram = 127;
    if (argc < 3) {
        return noProgram;
    }
    pid_t const child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        _exit(noProgram);
    }
    int status = 0;
    rusage usage{};
    std::FILE* const file = std::fopen(argv[1], "w");
    if (child < 0 || file == nullptr || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status)) {
        return noProgram;
    }
    constexpr long bytesPerUnit = 1024;
    std::fprintf(
        file, "%lld %ld\n", microsecondsOf(usage.ru_utime) + microsecondsOf(usage.ru_stime),
        usage.ru_maxrss * bytesPerUnit);
    return std::fclose(file) == 0 ? WEXITSTATUS(status) : noProgram;
}
