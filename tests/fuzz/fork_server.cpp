#include <QByteArray>
#include <QVector>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs the program again and again, each time in a process of its own that starts where the loader,
// the sanitizers and SQLite stand ready. A request is the number of arguments and a line feed, then
// each argument and a NUL. The answer is a line: the status that wait() gives, the processor time
// in milliseconds, the peak memory in kilobytes and the number of bytes that the run printed, which
// follow.
int migratorMain(int argumentCount, char **arguments);

namespace
{
constexpr rlim_t mostProcessorSeconds = 10;
constexpr unsigned mostSeconds = 90;

[[noreturn]] void run(QVector<QByteArray> arguments, int output)
{
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(nothing);
    close(output);
    // What takes longer ends by a signal.
    const rlimit limit = {mostProcessorSeconds, mostProcessorSeconds + 1};
    setrlimit(RLIMIT_CPU, &limit);
    alarm(mostSeconds);
    QVector<char *> pointers;
    for (QByteArray &argument : arguments) {
        pointers << argument.data();
    }
    pointers << nullptr;
    std::exit(migratorMain(arguments.size(), pointers.data()));
}

QByteArray takeText(int file)
{
    QByteArray text(static_cast<int>(lseek(file, 0, SEEK_END)), 0);
    if (pread(file, text.data(), static_cast<size_t>(text.size()), 0) != text.size()) {
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
    // The driver's plugin would be the half of every start. Qt, which finds it later, does not know.
    if (!dlopen(SQLITE_DRIVER, RTLD_NOW)) {
        std::cerr << dlerror() << std::endl;
        return 1;
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        QVector<QByteArray> arguments = {"/app/database-migrator"};
        for (int missing = std::stoi(line); missing > 0; --missing) {
            std::getline(std::cin, line, '\0');
            arguments << QByteArray::fromStdString(line);
        }
        const int output = memfd_create("output", MFD_CLOEXEC);
        const pid_t child = fork();
        if (child == 0) {
            run(arguments, output);
        }
        int status = 0;
        rusage usage = {};
        wait4(child, &status, 0, &usage);
        const QByteArray text = takeText(output);
        close(output);
        std::cout << status << ' ' << milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)
                  << ' ' << usage.ru_maxrss << ' ' << text.size() << '\n';
        std::cout.write(text.constData(), text.size()).flush();
    }
    return 0;
}
