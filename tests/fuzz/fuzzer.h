#pragma once

#include <QByteArray>
#include <QString>

/// Tries one input: each fuzzer program has its own. A broken rule ends the program.
void fuzz(const QByteArray &input);

/// Ends the program if a rule is broken, and names the rule.
void require(bool holds, const char *rule);

/// A file in memory, without a place in the file system.
class MemoryFile
{
public:
    explicit MemoryFile(const char *name);

    /// Replaces the file's content.
    void write(const QByteArray &content) const;

    /// The path by which this process can open the file.
    QString path() const;

private:
    int m_descriptor;
};
