#include "fuzz/fuzzer.h"

#include <sys/mman.h>
#include <unistd.h>

MemoryFile::MemoryFile(const char *name) : m_descriptor(memfd_create(name, 0))
{
    if (m_descriptor < 0) {
        qFatal("no file can be made in memory");
    }
}

void MemoryFile::write(const QByteArray &content) const
{
    if (ftruncate(m_descriptor, 0) != 0 ||
        pwrite(m_descriptor, content.constData(), static_cast<size_t>(content.size()), 0) !=
            content.size()) {
        qFatal("a file in memory cannot be written");
    }
}

QString MemoryFile::path() const
{
    return QString("/proc/self/fd/%1").arg(m_descriptor);
}

void require(bool holds, const char *rule)
{
    if (!holds) {
        qFatal("broken: %s", rule);
    }
}

// libFuzzer calls this function by its name.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, size_t size)
{
    fuzz(QByteArray(reinterpret_cast<const char *>(bytes), static_cast<int>(size)));
    return 0;
}
