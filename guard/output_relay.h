#pragma once

#include "guard/descriptor.h"

#include <vector>

/// Passes on what children write to standard output and standard error. They have pipes of this
/// process instead of the caller's own: a child that is left over when this process was killed does
/// not keep the caller waiting for the end of its output.
class OutputRelay
{
public:
    /// @return false when there are no pipes
    bool open();

    /// What the child is to have as its standard output and standard error.
    int childOutput() const { return m_streams.front().childEnd.get(); }
    int childErrors() const { return m_streams.back().childEnd.get(); }

    /// Has to be called when the child is started.
    void closeChildEnds();

    /// Passes on what comes until a descriptor can be read.
    void passOnUntil(int descriptor);

    /// Passes on what is left after the child has ended.
    void passOnRest();

private:
    struct Stream {
        Descriptor childEnd;
        Descriptor ownEnd; ///< not open: nothing more can come
        Descriptor target; ///< the caller's; not open: nobody reads there any more
    };
    static bool passOnPiece(Stream *stream);

    std::vector<Stream> m_streams;
};
