#pragma once

#include "guard/database_file.h"

#include <QByteArray>

#include <algorithm>
#include <vector>

/// A page of a b-tree, in SQLite's file format. Whatever its bytes are, no operation reads beyond
/// them.
class BTreePage
{
public:
    /// One entry, or in an interior page of a table a rowid that divides two children.
    struct Cell {
        bool isValid = false;     ///< the cell lies inside the page
        quint32 leftChild = 0;    ///< interior pages only; known even when the cell is not valid
        qint64 rowid = 0;         ///< tables only
        quint32 payloadSize = 0;  ///< bytes, those on overflow pages included
        int localOffset = 0;      ///< where in the page the payload begins
        int localSize = 0;        ///< bytes of the payload that are in the page
        quint32 overflowPage = 0; ///< the first of a chain, 0 without one
    };

    /// @return false when the disk failed
    bool read(const DatabaseFile &file, quint32 number);

    bool isBTreePage() const { return isTable() || isIndex(); }
    bool isTable() const { return m_type == 5 || m_type == 13; }
    bool isIndex() const { return m_type == 2 || m_type == 10; }
    bool isLeaf() const { return m_type == 10 || m_type == 13; }

    /// @return whether the page has room for the cells that it is said to have
    bool hasRoomForCells() const { return m_cellCount <= m_mostCells; }

    /// @return so many cells as there is room for at most
    int cellCount() const { return std::min(m_cellCount, m_mostCells); }

    Cell cell(int index) const;

    /// @return an interior page's last child
    quint32 rightChild() const;

    const char *bytes() const { return m_bytes.constData(); }

private:
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

    /// @return whether reading stopped at something that no b-tree has: then there may be more
    /// entries than have come
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
        int next = 0; ///< in an interior page 2 i is child i, and 2 i + 1 is cell i
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
    quint32 m_pagesRead = 0;       ///< more than the file has: the tree leads in a circle
    BTreePage::Cell m_cell;        ///< the current entry
    const char *m_local = nullptr; ///< the part of its record that is in the page
    quint32 m_bytesLeft = 0;       ///< of its record
    QByteArray m_overflowPage;     ///< the one that was read last
};

/// Tells which b-trees own a page of a set.
class PageOwners
{
public:
    struct Answer {
        bool ownsPageOfSet = false; ///< also when that cannot be ruled out
        bool sharesPages = false;   ///< another tree that was asked for before has a page of it
    };

    /// @param file whose trees are looked at
    /// @param pages the set, by page number; the file has no pages beyond it
    PageOwners(const DatabaseFile &file, const std::vector<bool> &pages);

    /// Follows all that could be a link from page to page: in a damaged tree too, every page is
    /// looked at that SQLite could read for it. All trees together take one look at every page.
    Answer ask(quint32 rootPage);

private:
    void visit(quint32 page, bool isOverflow);
    void visitLinks(const BTreePage &page);

    const DatabaseFile &m_file;
    const std::vector<bool> &m_pages;
    /// By page: 0 where no tree is known, or the tree's number; for an overflow page one more.
    std::vector<quint32> m_owners;
    std::vector<bool> m_ownsPageOfSet; ///< by tree
    Answer m_answer;                   ///< on the current tree
    quint32 m_tree = 0;                ///< its number, an even one
    std::vector<quint32> m_toVisit;
};
