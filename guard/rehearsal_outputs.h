#pragma once

#include "guard/command_line.h"
#include "guard/descriptor.h"

#include <QByteArray>
#include <QString>

/// An output file of a rehearsal. It gets its name when it is whole; until then it has a name that no
/// other file has.
class OutputFile
{
public:
    /// @param path absolute
    explicit OutputFile(const QString &path);
    ~OutputFile(); ///< removes a file that is not finished
    Q_DISABLE_COPY(OutputFile)

    bool isOpen() const { return m_file.isOpen(); }
    QString unfinished() const; ///< its name until it is finished

    /// Redirects standard output into the file.
    /// @return false when that cannot be done
    bool takesStandardOutput() const;

    /// @return false when a line is missing or cut, as on a full disk
    bool hasLines(int count) const;

    /// Gives the file its name, with the mode and the owner of the file that it replaces, or with the
    /// mode of any new file.
    /// @return false when the file could not be completed
    bool finish();

private:
    void setMode() const;

    QString m_path;
    QByteArray m_unfinished;
    Descriptor m_file;
};

/// A file in memory for what a process prints.
class HeldText
{
public:
    HeldText();

    int descriptor() const { return m_file.get(); }

    /// @return the whole content
    QByteArray content() const;

    /// Frees the descriptor.
    void close() { m_file.close(); }

private:
    Descriptor m_file;
};

/// Keeps what is written to standard output while this object lives. An inner guard's output passes
/// through a pipe, and the end of that pipe cannot report that the caller's disk is full.
class HeldOutput
{
public:
    HeldOutput();
    ~HeldOutput();
    Q_DISABLE_COPY(HeldOutput)

    QByteArray content() const { return m_held.content(); }

private:
    Descriptor m_caller; ///< standard output before
    HeldText m_held;
};

/// Checks that a report and a result do not replace what is needed: a file that is rehearsed, that the
/// rehearsal reads, or that this device needs or cannot get back.
/// @param application the application directory, absolute
/// @return what is wrong with the files that are to be written, empty when nothing is
QString errorOfOutputs(const CommandLine &line, const QString &application);
