#pragma once

#include "guard/database_file.h"

#include <QByteArray>

#include <algorithm>
#include <vector>

/// A page of a b-tree, in SQLite's file format. No operation reads beyond the page, whatever bytes
/// are in it.
class BTreePage
{
public:
    /// One entry; in an interior page of a table, a rowid that divides two children.
    struct Cell {
        bool isValid = false;     ///< the cell lies inside the page
        quint32 leftChild = 0;    ///< interior pages only; known even when the cell is not valid
        qint64 rowid = 0;         ///< tables only
        quint32 payloadSize = 0;  ///< bytes, including those on overflow pages
        int localOffset = 0;      ///< where the payload begins in the page
        int localSize = 0;        ///< bytes of the payload that are in the page
        quint32 overflowPage = 0; ///< the first page of the chain, 0 without one
    };

    /// @return false when the disk failed
    bool read(const DatabaseFile &file, quint32 number);

    /// Takes a page that has been read already.
    /// @param bytes the whole page; they have to stay there while this object is used
    void view(const DatabaseFile &file, quint32 number, const char *bytes);

    bool isBTreePage() const { return isTable() || isIndex(); }
    bool isTable() const { return m_type == 5 || m_type == 13; }
    bool isIndex() const { return m_type == 2 || m_type == 10; }
    bool isLeaf() const { return m_type == 10 || m_type == 13; }

    /// @return whether the page has room for as many cells as it claims to have
    bool hasRoomForCells() const { return m_cellCount <= m_mostCells; }

    /// @return how many cells the page claims to have, but no more than it has room for
    int cellCount() const { return std::min(m_cellCount, m_mostCells); }

    Cell cell(int index) const;

    /// @return false when no other page can be reached from this one: a leaf without an entry that
    /// is too long for its page, or no page of a b-tree
    bool mayHaveLinks() const;

    /// @return an interior page's last child
    quint32 rightChild() const;

    const char *bytes() const { return m_bytes.constData(); }

private:
    void readHeader(const DatabaseFile &file, quint32 number);
    int cellOffset(int index) const;
    quint32 mostLocalBytes() const;
    void readPayload(Cell &cell, int offset) const;
    bool readVarint(int &offset, quint64 &value) const;

    QByteArray m_bytes;
    int m_usableSize = 0;
    int m_headerOffset = 0;
    int m_type = 0;
    int m_cellCount = 0;
    int m_mostCells = 0;
};

/// Reads the entries of one b-tree in key order: the rows of a table, the entries of an index, the
/// rows of a table without rowid.
class BTreeCursor
{
public:
    BTreeCursor(const DatabaseFile &file, quint32 rootPage);

    /// Goes to the next entry.
    /// @return false after the last one, or when the tree is damaged or cannot be read
    bool next();

    /// @return whether reading stopped at damage; there may be more entries than were read
    bool isDamaged() const { return m_isDamaged; }

    /// @return whether the tree has rowids
    bool isTable() const { return m_isTable; }

    /// @return the entry's rowid, 0 when the tree has none
    qint64 rowid() const { return m_cell.rowid; }

    /// @return bytes of the entry's record
    quint32 payloadSize() const { return m_cell.payloadSize; }

    /// Reads the entry's record piece by piece.
    /// @param[out] size bytes of the piece, 0 after the last one and when the tree is damaged
    /// @return the piece, valid until the next call
    const char *nextPiece(int &size);

    /// Reads the whole record.
    /// @return an empty one when the tree is damaged
    QByteArray payload();

private:
    struct Level {
        BTreePage page;
        int next = 0; ///< in an interior page, 2 i is child i and 2 i + 1 is cell i
    };

    bool descend(quint32 page);
    bool stopDamaged();
    bool acceptEntry(const BTreePage::Cell &cell);
    bool acceptSeparator(const BTreePage::Cell &cell);

    const DatabaseFile &m_file;
    std::vector<Level> m_levels;
    int m_depth = 0;
    bool m_isTable = false;
    bool m_isDamaged = false;
    bool m_hasLowerBound = false;
    qint64 m_lowerBound = 0;       ///< the rowids that follow are greater
    quint32 m_pagesRead = 0;       ///< if it exceeds the pages of the file, the tree has a cycle
    BTreePage::Cell m_cell;        ///< the current entry
    const char *m_local = nullptr; ///< the part of the current record that is in the page
    quint32 m_bytesLeft = 0;       ///< of the current record
    QByteArray m_overflowPage;     ///< the last one that was read
};

/// Finds out which b-trees own a page of a set.
class PageOwners
{
public:
    struct Answer {
        bool ownsPageOfSet = false; ///< also true when that cannot be ruled out
        bool sharesPages = false;   ///< it shares a page with a tree that was asked for before
    };

    /// @param file the file whose trees are looked at
    /// @param pages the set, by page number; the file has no pages beyond it
    /// @param linked by page number: false where BTreePage::mayHaveLinks() is false; these pages are
    /// most of a file, and are not read again
    PageOwners(
        const DatabaseFile &file, const std::vector<bool> &pages, const std::vector<bool> &linked);

    /// Follows everything that could be a link from page to page. So even in a damaged tree it
    /// looks at every page that SQLite could read for that tree. For all trees together, each page
    /// is read at most once.
    Answer ask(quint32 rootPage);

private:
    void visit(quint32 page, bool isOverflow);
    void visitLinks(const BTreePage &page);

    const DatabaseFile &m_file;
    const std::vector<bool> &m_pages;
    const std::vector<bool> &m_linked;
    /// By page: the tree's number, for an overflow page that number plus 1; 0 when no tree is
    /// known.
    std::vector<quint32> m_owners;
    std::vector<bool> m_ownsPageOfSet; ///< by tree
    Answer m_answer;                   ///< on the current tree
    quint32 m_tree = 0;                ///< its number, an even one
    std::vector<quint32> m_toVisit;
};
