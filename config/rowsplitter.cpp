#include "config/rowsplitter.h"

#include <algorithm>

bool CRowSplitter::Put(wchar_t c)
{
    if (m_Stopped)
        return false;
    if (c == L'\n') {
        EndLine();
        return !m_Stopped;
    }
    m_LineStarted = true;
    if (c != L'\r' || !m_Plain)
        m_Line.push_back(c);
    return true;
}

void CRowSplitter::Finish()
{
    if (!m_Stopped && m_LineStarted)
        EndLine();
}

bool CRowSplitter::IsStopWord(const std::wstring& cell)
{
    return cell == L"USERS" || cell == L"INIFILE" || cell == L"[users]" || cell == L"[options]";
}

void CRowSplitter::EndLine()
{
    Row row;
    // Sized once: a file of many rows is held whole, so spare capacity counts.
    row.reserve(std::count(m_Line.begin(), m_Line.end(), L';') + 1);
    // A ';' at the very end leaves start at the end: no further cell.
    size_t start = 0;
    while (start < m_Line.size()) {
        size_t end = m_Line.find(L';', start);
        if (end == std::wstring::npos)
            end = m_Line.size();
        row.emplace_back(m_Line, start, end - start);
        if (!m_Plain && IsStopWord(row.back())) {
            m_Stopped = true;
            return;
        }
        start = end + 1;
    }
    m_Rows.push_back(std::move(row));
    m_Line.clear();
    m_LineStarted = false;
}
