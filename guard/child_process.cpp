#include "guard/child_process.h"
#include "guard/limits.h"

#include <QByteArrayList>
#include <QDir>
#include <QFile>

#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <vector>

namespace
{
/// The arguments of a program in the form that execv takes.
class Command
{
public:
    Command(const QString &program, const QStringList &arguments)
    {
        m_words << QFile::encodeName(program);
        for (const QString &argument : arguments) {
            m_words << QFile::encodeName(argument);
        }
        for (QByteArray &word : m_words) {
            m_pointers.push_back(word.data());
        }
        m_pointers.push_back(nullptr);
    }

    char *const *get() const { return m_pointers.data(); }

private:
    QByteArrayList m_words;
    std::vector<char *> m_pointers;
};

/// @return the process that a directory in /proc describes as a child of this one, -1 for none
pid_t childIn(const QString &directory)
{
    QFile file(directory + "/stat");
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    // The file has the process's number, its name in parentheses, its state and its parent.
    const QByteArray content = file.readAll();
    const QList<QByteArray> fields = content.mid(content.lastIndexOf(')') + 2).split(' ');
    const bool isChild = fields.size() > 1 && fields[1].toInt() == getpid();
    return isChild ? content.left(content.indexOf(' ')).toInt() : -1;
}

/// @return false when no child was found
bool killChildren()
{
    bool found = false;
    const QDir processes("/proc");
    for (const QString &name : processes.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const pid_t child = name[0].isDigit() ? childIn(processes.filePath(name)) : -1;
        found = found || child > 0;
        if (child > 0) {
            ::kill(child, SIGKILL);
        }
    }
    return found;
}
} // namespace

void prepareDescriptors()
{
    int standard = 0;
    while (standard >= 0 && standard <= STDERR_FILENO) {
        standard = open("/dev/null", O_RDWR);
    }
    close(standard);
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir("/proc/self/fd"), closedir);
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        const int descriptor = std::atoi(entry->d_name);
        if (descriptor > STDERR_FILENO) {
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
    }
}

ChildProcess::ChildProcess()
{
    // A caller may have left this signal ignored, and then this process could not wait for a
    // child's end.
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ends, &m_signalsBefore);
    m_ends = Descriptor(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
}

ChildProcess::~ChildProcess()
{
    kill();
    sigprocmask(SIG_SETMASK, &m_signalsBefore, nullptr);
}

bool ChildProcess::start(
    const QString &program, const QStringList &arguments, const Options &options)
{
    const Command command(program, arguments);
    int ends[2];
    if (!m_ends.isOpen() || pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const Descriptor failureRead(ends[0]);
    Descriptor failureWrite(ends[1]);
    const pid_t self = getpid();
    m_process = fork();
    if (m_process == 0) {
        execute(command.get(), options, self, failureWrite);
    }
    failureWrite.close();
    // The pipe is closed without a message when the program is executed.
    int error = 0;
    ssize_t size = -1;
    while (m_process > 0 && (size = read(failureRead.get(), &error, sizeof error)) < 0 &&
           errno == EINTR) {
    }
    if (size != 0) {
        waitForEnd(-1);
        return false;
    }
    return true;
}

void ChildProcess::execute(
    char *const *command, const Options &options, pid_t parent, const Descriptor &failure) const
{
    // Between fork and exec only calls are allowed that are safe in a signal handler.
    const int failed = 127;
    if (options.diesWithParent) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            // The parent has ended already.
            _exit(failed);
        }
    }
    std::signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &m_signalsBefore, nullptr);
    const int input = options.input < 0 ? open("/dev/null", O_RDONLY | O_CLOEXEC) : options.input;
    dup2(input, STDIN_FILENO);
    dup2(options.output, STDOUT_FILENO);
    dup2(options.errors, STDERR_FILENO);
    if (options.passed >= 0) {
        fcntl(options.passed, F_SETFD, 0);
    }
    execv(command[0], command);
    const int error = errno;
    failure.writeAll(reinterpret_cast<const char *>(&error), sizeof error);
    _exit(failed);
}

/// Call it before asking the system which child has ended: another child can end right after.
void ChildProcess::forgetEnds() const
{
    signalfd_siginfo told;
    while (read(m_ends.get(), &told, sizeof told) > 0) {
    }
}

bool ChildProcess::hasEnded()
{
    forgetEnds();
    if (m_process > 0) {
        const pid_t ended = waitpid(m_process, &m_status, WNOHANG);
        if (ended < 0) {
            // It is not known how it ended.
            m_status = SIGKILL;
        }
        m_process = ended == 0 ? m_process : -1;
    }
    return m_process < 0;
}

bool ChildProcess::waitForAnyEnd(int milliseconds) const
{
    pollfd end = {m_ends.get(), POLLIN, 0};
    return poll(&end, 1, milliseconds) != 0;
}

bool ChildProcess::waitForEnd(int milliseconds)
{
    while (!hasEnded()) {
        if (!waitForAnyEnd(milliseconds)) {
            return hasEnded();
        }
    }
    return true;
}

void ChildProcess::kill()
{
    if (!hasEnded()) {
        ::kill(m_process, SIGKILL);
        waitForEnd(-1);
    }
}

void ChildProcess::endAllChildren()
{
    kill();
    for (;;) {
        forgetEnds();
        const pid_t ended = waitpid(-1, nullptr, WNOHANG);
        const bool someRun = ended == 0;
        if (ended < 0 || (someRun && !waitForAnyEnd(limits::momentForOrphans) && !killChildren())) {
            return;
        }
    }
}
