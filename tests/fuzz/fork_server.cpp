#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs the program again and again, each time in a new process in which the loader, the sanitizers
// and SQLite are ready. A request is a line with the processor time in seconds
// that the run may take and the number of its arguments, then each argument and a NUL. The answer
// is a line with the status that wait() gives, the processor time in milliseconds, the peak memory
// in kilobytes and the number of bytes that the run printed, then these bytes.
int migratorMain(int argumentCount, char **arguments);

namespace
{
struct Request {
    rlim_t seconds = 0;
    std::vector<std::string> arguments;
};

bool readRequest(Request *request)
{
    size_t count = 0;
    if (!(std::cin >> request->seconds >> count) || std::cin.get() != '\n') {
        return false;
    }
    request->arguments.resize(count);
    for (std::string &argument : request->arguments) {
        std::getline(std::cin, argument, '\0');
    }
    return true;
}

[[noreturn]] void run(Request request, int output)
{
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(nothing);
    close(output);
    // A run that takes longer ends by a signal, and so does one that merely waits.
    const rlimit limit = {request.seconds, request.seconds + 1};
    setrlimit(RLIMIT_CPU, &limit);
    alarm(static_cast<unsigned>(request.seconds) * 3);
    char program[] = "/app/database-migrator";
    std::vector<char *> arguments = {program};
    for (std::string &argument : request.arguments) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    std::exit(migratorMain(static_cast<int>(arguments.size()) - 1, arguments.data()));
}

std::string textOf(int file)
{
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), 0);
    if (pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        std::abort();
    }
    return text;
}

long long milliseconds(const timeval &time)
{
    return time.tv_sec * 1000LL + time.tv_usec / 1000;
}
} // namespace

int main()
{
    // Loads SQLite's driver once: it would be half of the time of every start. Qt finds it loaded.
    if (!dlopen(SQLITE_DRIVER, RTLD_NOW)) {
        std::cerr << dlerror() << std::endl;
        return 1;
    }
    Request request;
    while (readRequest(&request)) {
        const int output = memfd_create("output", 0);
        const pid_t child = fork();
        if (child == 0) {
            run(request, output);
        }
        int status = 0;
        rusage usage = {};
        wait4(child, &status, 0, &usage);
        const std::string text = textOf(output);
        close(output);
        std::cout << status << ' ' << milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)
                  << ' ' << usage.ru_maxrss << ' ' << text.size() << '\n'
                  << text << std::flush;
    }
    return 0;
}
