#include "guard/messages.h"

#include <cstdio>

void tell(const QByteArray &text)
{
    // One write for the whole line, so that lines of two programs do not mix.
    const QByteArray line = "migration-guard: " + text + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    std::fflush(stderr);
}
