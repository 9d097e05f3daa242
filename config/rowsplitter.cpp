#include "config/rowsplitter.h"

#include <algorithm>
#include <cwchar>

namespace {

// The text into the memory the cell already has: a column's cells are much
// alike from row to row, so that this rarely asks for more.
void Put(std::wstring& cell, const wchar_t* text, size_t length)
{
    const size_t kept = std::min(cell.size(), length);
    std::copy(text, text + kept, cell.begin());
    if (length <= cell.size())
        cell.erase(length);
    else
        cell.append(text + kept, length - kept);
}

} // namespace

bool CRowSplitter::AddLine(const wchar_t* line, size_t length, bool cut)
{
    if (m_Stopped)
        return false;
    if (m_Plain && std::wmemchr(line, L'\r', length)) {
        m_Clean.assign(line, length);
        m_Clean.erase(std::remove(m_Clean.begin(), m_Clean.end(), L'\r'), m_Clean.end());
        line = m_Clean.data();
        length = m_Clean.size();
    }

    if (m_Count == m_Rows.size())
        m_Rows.emplace_back();
    Row& row = m_Rows[m_Count];
    size_t cells = 0;
    // A ';' at the very end leaves start at the end: no further cell.
    size_t start = 0;
    while (start < length) {
        size_t end = start;
        while (end < length && line[end] != L';')
            ++end;
        if (!m_Plain && IsStopWord(line + start, end - start)) {
            m_Stopped = true;
            return false;
        }
        // Cells past one too many aren't kept, only searched for stop words.
        if (cells <= kMaxCells) {
            if (cells == row.size())
                Grow(row);
            Put(row[cells++], line + start, end - start);
        }
        start = end + 1;
    }
    // A line too long to be a row of the format is one cell too many.
    if (cut) {
        while (row.size() < kMaxCells + 1)
            Grow(row).clear();
        cells = kMaxCells + 1;
    }
    // Cells a shorter row doesn't take are kept with their memory.
    while (row.size() > cells) {
        m_Spare.push_back(std::move(row.back()));
        row.pop_back();
    }
    ++m_Count;
    return true;
}

std::wstring& CRowSplitter::Grow(Row& row)
{
    if (m_Spare.empty()) {
        row.emplace_back();
    } else {
        row.push_back(std::move(m_Spare.back()));
        m_Spare.pop_back();
    }
    return row.back();
}

void CRowSplitter::Clear()
{
    // Capacity beyond a normal cell would add up over the whole buffer.
    const auto release = [](std::wstring& cell) {
        if (cell.capacity() > 256)
            std::wstring().swap(cell);
    };
    for (size_t i = 0; i < m_Count; ++i)
        for (std::wstring& cell : m_Rows[i])
            release(cell);
    for (std::wstring& cell : m_Spare)
        release(cell);
    m_Count = 0;
}

bool CRowSplitter::IsStopWord(const wchar_t* cell, size_t length)
{
    // Cheap test first: every cell of every row passes here.
    if (length < 5 || length > 9 || (cell[0] != L'U' && cell[0] != L'I' && cell[0] != L'['))
        return false;
    const std::wstring_view text(cell, length);
    return text == L"USERS" || text == L"INIFILE" || text == L"[users]" || text == L"[options]";
}
