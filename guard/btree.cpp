#include "guard/btree.h"

#include <QtEndian>

namespace
{
// SQLite refuses deeper trees.
constexpr int deepestLevel = 20;

quint32 numberAt(const char *bytes)
{
    return qFromBigEndian<quint32>(bytes);
}
} // namespace

bool BTreePage::read(const DatabaseFile &file, quint32 number)
{
    m_bytes.resize(file.pageSize());
    if (!file.read(number, m_bytes.data(), m_bytes.size())) {
        m_type = 0;
        return false;
    }
    readHeader(file, number);
    return true;
}

void BTreePage::view(const DatabaseFile &file, quint32 number, const char *bytes)
{
    m_bytes = QByteArray::fromRawData(bytes, file.pageSize());
    readHeader(file, number);
}

void BTreePage::readHeader(const DatabaseFile &file, quint32 number)
{
    m_usableSize = file.usableSize();
    m_headerOffset = number == 1 ? DatabaseFile::headerSize : 0;
    m_type = static_cast<quint8>(m_bytes.at(m_headerOffset));
    m_cellCount = qFromBigEndian<quint16>(m_bytes.constData() + m_headerOffset + 3);
    const int pointers = m_headerOffset + (isLeaf() ? 8 : 12);
    m_mostCells = (m_usableSize - pointers) / 2;
}

bool BTreePage::mayHaveLinks() const
{
    if (!isBTreePage() || !isLeaf()) {
        return isBTreePage();
    }
    const quint32 most = mostLocalBytes();
    for (int index = 0; index < cellCount(); ++index) {
        int offset = cellOffset(index);
        quint64 size = 0;
        if (readVarint(offset, size) && static_cast<quint32>(size) > most) {
            return true;
        }
    }
    return false;
}

quint32 BTreePage::rightChild() const
{
    return numberAt(bytes() + m_headerOffset + 8);
}

int BTreePage::cellOffset(int index) const
{
    const int pointer = m_headerOffset + (isLeaf() ? 8 : 12) + 2 * index;
    // SQLite truncates an offset that is too large in the same way.
    return qFromBigEndian<quint16>(bytes() + pointer) & (m_bytes.size() - 1);
}

/// @return the most bytes of a record that a page holds; the file format gives the formula
quint32 BTreePage::mostLocalBytes() const
{
    return static_cast<quint32>(
        isTable() ? m_usableSize - 35 : (m_usableSize - 12) * 64 / 255 - 23);
}

BTreePage::Cell BTreePage::cell(int index) const
{
    Cell cell;
    int offset = cellOffset(index);
    if (!isLeaf()) {
        if (offset + 4 > m_usableSize) {
            return cell;
        }
        cell.leftChild = numberAt(bytes() + offset);
        offset += 4;
    }
    quint64 value = 0;
    if (isTable() && !isLeaf()) {
        cell.isValid = readVarint(offset, value);
        cell.rowid = static_cast<qint64>(value);
    } else {
        readPayload(cell, offset);
    }
    return cell;
}

void BTreePage::readPayload(Cell &cell, int offset) const
{
    quint64 value = 0;
    if (!readVarint(offset, value)) {
        return;
    }
    // SQLite takes the lower half of a larger number.
    cell.payloadSize = static_cast<quint32>(value);
    if (isTable()) {
        if (!readVarint(offset, value)) {
            return;
        }
        cell.rowid = static_cast<qint64>(value);
    }
    // The file format's formula for the part of a record that is in the page.
    const quint32 most = mostLocalBytes();
    const bool hasOverflow = cell.payloadSize > most;
    cell.localOffset = offset;
    if (hasOverflow) {
        const int least = (m_usableSize - 12) * 32 / 255 - 23;
        const qint64 wanted = least + (qint64(cell.payloadSize) - least) % (m_usableSize - 4);
        cell.localSize = wanted <= most ? static_cast<int>(wanted) : least;
    } else {
        cell.localSize = static_cast<int>(cell.payloadSize);
    }
    const int end = offset + cell.localSize;
    cell.isValid = end + (hasOverflow ? 4 : 0) <= m_usableSize;
    if (hasOverflow && cell.isValid) {
        cell.overflowPage = numberAt(bytes() + end);
    }
}

/// @return false when the number extends beyond the page
bool BTreePage::readVarint(int &offset, quint64 &value) const
{
    value = 0;
    for (int byte = 1; byte <= 9; ++byte, ++offset) {
        if (offset >= m_usableSize) {
            return false;
        }
        const quint8 bits = static_cast<quint8>(m_bytes[offset]);
        if (byte == 9) {
            value = value << 8 | bits;
        } else {
            value = value << 7 | (bits & 0x7f);
            if (bits < 0x80) {
                ++offset;
                return true;
            }
        }
    }
    return true;
}

BTreeCursor::BTreeCursor(const DatabaseFile &file, quint32 rootPage) : m_file(file)
{
    m_levels.resize(deepestLevel);
    if (descend(rootPage)) {
        m_isTable = m_levels[0].page.isTable();
    }
}

bool BTreeCursor::next()
{
    while (!m_isDamaged && m_depth > 0) {
        Level &level = m_levels[static_cast<size_t>(m_depth - 1)];
        const int cells = level.page.cellCount();
        const int position = level.next++;
        if (level.page.isLeaf()) {
            if (position < cells) {
                return acceptEntry(level.page.cell(position));
            }
            --m_depth;
        } else if (position > 2 * cells) {
            --m_depth;
        } else if (position == 2 * cells) {
            descend(level.page.rightChild());
        } else if (position % 2 == 0) {
            descend(level.page.cell(position / 2).leftChild);
        } else if (m_isTable) {
            acceptSeparator(level.page.cell(position / 2));
        } else {
            return acceptEntry(level.page.cell(position / 2));
        }
    }
    return false;
}

bool BTreeCursor::descend(quint32 page)
{
    if (page == 0 || page > m_file.pageCount() || m_depth == deepestLevel ||
        ++m_pagesRead > m_file.pageCount()) {
        return stopDamaged();
    }
    Level &level = m_levels[static_cast<size_t>(m_depth)];
    level.next = 0;
    if (!level.page.read(m_file, page) || !level.page.isBTreePage() ||
        !level.page.hasRoomForCells() || (m_depth > 0 && level.page.isTable() != m_isTable)) {
        return stopDamaged();
    }
    ++m_depth;
    return true;
}

bool BTreeCursor::stopDamaged()
{
    m_isDamaged = true;
    return false;
}

bool BTreeCursor::acceptEntry(const BTreePage::Cell &cell)
{
    if (!cell.isValid || (m_isTable && m_hasLowerBound && cell.rowid <= m_lowerBound)) {
        return stopDamaged();
    }
    m_cell = cell;
    m_local = m_levels[static_cast<size_t>(m_depth - 1)].page.bytes() + cell.localOffset;
    m_bytesLeft = cell.payloadSize;
    m_hasLowerBound = true;
    m_lowerBound = cell.rowid;
    return true;
}

/// A rowid that does not divide the children leads SQLite to the wrong child.
bool BTreeCursor::acceptSeparator(const BTreePage::Cell &cell)
{
    if (!cell.isValid || (m_hasLowerBound && cell.rowid < m_lowerBound)) {
        return stopDamaged();
    }
    m_hasLowerBound = true;
    m_lowerBound = cell.rowid;
    return true;
}

const char *BTreeCursor::nextPiece(int &size)
{
    size = 0;
    if (m_bytesLeft == 0 || m_isDamaged) {
        return nullptr;
    }
    if (m_bytesLeft == m_cell.payloadSize) {
        size = m_cell.localSize;
        m_bytesLeft -= static_cast<quint32>(size);
        return m_local;
    }
    const quint32 page = m_cell.overflowPage;
    m_overflowPage.resize(m_file.usableSize());
    if (page == 0 || page > m_file.pageCount() || ++m_pagesRead > m_file.pageCount() ||
        !m_file.read(page, m_overflowPage.data(), m_overflowPage.size())) {
        stopDamaged();
        return nullptr;
    }
    m_cell.overflowPage = numberAt(m_overflowPage.constData());
    size = static_cast<int>(std::min(m_bytesLeft, static_cast<quint32>(m_overflowPage.size() - 4)));
    m_bytesLeft -= static_cast<quint32>(size);
    return m_overflowPage.constData() + 4;
}

QByteArray BTreeCursor::payload()
{
    QByteArray payload;
    int size = 0;
    while (const char *piece = nextPiece(size)) {
        payload.append(piece, size);
    }
    return m_isDamaged ? QByteArray() : payload;
}

PageOwners::PageOwners(
    const DatabaseFile &file, const std::vector<bool> &pages, const std::vector<bool> &linked)
    : m_file(file), m_pages(pages), m_linked(linked), m_owners(pages.size()), m_ownsPageOfSet(1)
{
}

PageOwners::Answer PageOwners::ask(quint32 rootPage)
{
    m_tree += 2;
    m_answer = {};
    visit(rootPage, false);
    BTreePage page;
    while (!m_toVisit.empty()) {
        const quint32 number = m_toVisit.back();
        m_toVisit.pop_back();
        // A page that cannot be read has no links; the file object remembers the failure.
        if (m_owners[number] == m_tree) {
            if (m_linked[number] && page.read(m_file, number)) {
                visitLinks(page);
            }
        } else {
            char next[4];
            if (m_file.read(number, next, sizeof next)) {
                visit(numberAt(next), true);
            }
        }
    }
    m_ownsPageOfSet.push_back(m_answer.ownsPageOfSet);
    return m_answer;
}

void PageOwners::visitLinks(const BTreePage &page)
{
    if (!page.isBTreePage()) {
        return;
    }
    for (int index = 0; index < page.cellCount(); ++index) {
        const BTreePage::Cell cell = page.cell(index);
        visit(cell.leftChild, false);
        visit(cell.overflowPage, true);
    }
    if (!page.isLeaf()) {
        visit(page.rightChild(), false);
    }
}

void PageOwners::visit(quint32 page, bool isOverflow)
{
    if (page == 0 || page >= m_pages.size()) {
        return;
    }
    const quint32 visitor = isOverflow ? m_tree + 1 : m_tree;
    const quint32 owner = m_owners[page];
    if (owner == 0) {
        m_owners[page] = visitor;
        m_toVisit.push_back(page);
        m_answer.ownsPageOfSet = m_answer.ownsPageOfSet || m_pages[page];
    } else if (owner != visitor) {
        // The page's links are known if another tree has read it as a page of the same kind.
        const bool isKnown = owner / 2 != m_tree / 2 && owner % 2 == visitor % 2;
        m_answer.sharesPages = true;
        m_answer.ownsPageOfSet = m_answer.ownsPageOfSet || !isKnown || m_ownsPageOfSet[owner / 2];
    }
}
