#pragma once

#include <string>
#include <vector>

// Cuts the text of a configuration file into rows at LF and rows into cells at
// ';'. There is no quoting. Text behind the last LF is a row as well; a ';' at
// the very end of a row opens no further cell, and an empty line is a row
// without cells. The plain form drops every carriage return. The scrambled
// form ends at the first cell that is a stop word (the run-parameter tail or
// the users block), dropping the row in hand.
class CRowSplitter
{
public:
    using Row = std::vector<std::wstring>;
    using Rows = std::vector<Row>;

    explicit CRowSplitter(bool plain) : m_Plain(plain) {}

    // Feeds one character; false once a stop word has ended the text.
    bool Put(wchar_t c);
    // Ends the text.
    void Finish();
    // Forgets the line in hand, for a line whose bytes can't be decoded.
    void DropLine()
    {
        m_Line.clear();
        m_LineStarted = false;
    }

    bool Stopped() const { return m_Stopped; }
    // Rows complete so far; the caller may take them away between calls.
    Rows& Taken() { return m_Rows; }

    static bool IsStopWord(const std::wstring& cell);

private:
    void EndLine();

    bool m_Plain;
    bool m_Stopped = false;
    bool m_LineStarted = false;
    std::wstring m_Line;
    Rows m_Rows;
};
