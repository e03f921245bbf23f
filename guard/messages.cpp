#include "guard/messages.h"

#include <cstdio>

void tell(const QByteArray &text)
{
    // One write for the whole line keeps it apart from the lines of other programs.
    const QByteArray line = "migration-guard: " + text + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    std::fflush(stderr);
}
