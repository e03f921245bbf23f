#include "guard/program_root.h"
#include "guard/root_directory.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace
{
/// The name, in a remade directory, of the directory that it replaces.
const char *const originalName = ".original";

const char *const sharedMemory = "/dev/shm";
} // namespace

ProgramRoot::ProgramRoot(const QString &base) : m_base(base)
{
    // These belong to the running kernel.
    for (const char *path : {"/dev", "/proc"}) {
        m_places << Place{path, path, "--dev-bind"};
    }
    // It has no devices: it is memory with files of any user.
    m_places << Place{sharedMemory, sharedMemory, "--ro-bind-try"};
}

void ProgramRoot::place(const QString &inside, const QString &source, Access access)
{
    // No program finds what is where no link leads.
    if (!inside.isEmpty()) {
        m_places << Place{inside, source, access == Access::Writable ? "--bind" : "--ro-bind"};
    }
}

/// @return true for a place, and for every directory above one
bool ProgramRoot::leadsToPlace(const QString &path) const
{
    return std::any_of(m_places.begin(), m_places.end(), [&](const Place &place) {
        return place.inside == path || place.inside.startsWith(path + '/');
    });
}

/// Bubblewrap can only mount over a directory or a file that exists or that it may create. So the
/// nearest existing directory above a missing place is remade in memory.
/// @return options for the directory and everything in it, as links, which cost less than mounts
QStringList ProgramRoot::remade(const QString &directory) const
{
    const QString real = rootDirectory::outside(m_base, directory);
    const QString original = directory + '/' + originalName;
    QStringList arguments = {"--tmpfs", directory, "--ro-bind", real, original};
    const QStringList names =
        QDir(real).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        const QString inside = directory + '/' + name;
        if (leadsToPlace(inside)) {
            // Mounted, not linked: a link would change the program's real path, where it looks for
            // its files.
            arguments += {"--ro-bind", real + '/' + name, inside};
        } else {
            // A link that leads upwards would begin a directory too low.
            const QString link = rootDirectory::linkText(real + '/' + name);
            const QString moved = QString(originalName) + '/' + name;
            arguments += {"--symlink", link.isEmpty() ? moved : link, inside};
        }
    }
    return arguments;
}

QStringList ProgramRoot::arguments() const
{
    QSet<QString> lacking;
    for (const Place &place : m_places) {
        QString path = place.inside;
        if (path == sharedMemory || QFileInfo::exists(rootDirectory::outside(m_base, path))) {
            continue;
        }
        while (path != "/" && !QFileInfo::exists(rootDirectory::outside(m_base, path))) {
            path = QFileInfo(path).path();
        }
        lacking << path;
    }
    QStringList arguments = lacking.remove("/")
                                ? rootDirectory::inMemory(m_base, "--ro-bind", QString())
                                : QStringList{"--ro-bind", m_base, "/"};
    QStringList sorted = lacking.values();
    // A directory comes before the directories in it.
    std::sort(sorted.begin(), sorted.end());
    for (const QString &directory : sorted) {
        arguments += remade(directory);
    }
    for (const Place &place : m_places) {
        arguments += {place.option, place.source, place.inside};
    }
    return arguments;
}
