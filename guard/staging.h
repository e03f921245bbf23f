#pragma once

#include <QByteArrayList>
#include <QString>

#include <optional>

/// The directory with the files that a run works on. It is removed with this object.
class Staging
{
public:
    enum class Place { Memory, Disk };

    /// @param directory `prepare` removes what an earlier run left there, then makes it; if it is a
    /// mounted file system, it is emptied instead
    Staging(const QString &directory, Place place) : m_directory(directory), m_place(place) {}
    ~Staging();
    Q_DISABLE_COPY(Staging)

    /// Makes the empty directories.
    /// @return false when they cannot be made
    bool prepare();

    Place place() const { return m_place; }
    QString directory() const { return m_directory; }
    QString original() const { return m_directory + "/original.sqlite"; } ///< the copy, untouched
    QString mended() const { return m_directory + "/mended.sqlite"; }     ///< the copy, mended
    QString databases() const
    {
        return m_directory + "/databases";
    } ///< the directory that the program sees
    QString database() const;
    QString log() const;
    QString pool() const { return m_directory + "/pool"; }
    QString temporary() const { return m_directory + "/temporary"; } ///< for the guard's own files

    /// Removes what a run that died has left here.
    static void remove(const QString &directory);

private:
    QString m_directory;
    Place m_place;
};

/// The staged pool: an empty file for every file of the real one.
namespace stagedPool
{
/// @param pool the real directory, empty for none
/// @return the names of the files, nothing when a file cannot be made
std::optional<QByteArrayList> fill(const QString &pool, const QString &staged);

/// @param names the files that fill() made
/// @return those that the program has deleted
QByteArrayList deletedFiles(const QByteArrayList &names, const QString &staged);

/// Deletes these files in the real pool. Flushes the directory, because the note that would repeat
/// this is removed next.
/// @return false when a file is still there, because of an error
bool deleteFiles(const QString &pool, const QByteArrayList &names);
} // namespace stagedPool
