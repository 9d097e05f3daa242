#pragma once

#include <string>
#include <vector>

// Cuts the lines of a configuration file into cells at ';'. There is no
// quoting; a ';' at the very end of a line opens no further cell, and an empty
// line is a row without cells. The plain form drops every carriage return. The
// scrambled form ends at the first cell that is a stop word (the run-parameter
// tail or the users block), dropping the row in hand.
//
// No row of the format has more than kMaxCells cells, and none comes near
// kMaxLineChars characters. A row past either bound is cut to kMaxCells + 1
// cells, one too many, so that the reader refuses it as a row of the wrong
// length: the memory for one line stays bounded whatever the file holds.
//
// Rows are kept in a buffer whose strings are reused after Clear(), and so are
// the cells a shorter row leaves, so that a large file is cut without an
// allocation for every cell.
class CRowSplitter
{
public:
    using Row = std::vector<std::wstring>;
    using Rows = std::vector<Row>;

    static constexpr size_t kMaxCells = 18;
    static constexpr size_t kMaxLineChars = 1 << 16;

    explicit CRowSplitter(bool plain) : m_Plain(plain) {}

    // One line without its LF; cut tells that the line went on beyond
    // kMaxLineChars characters. false once a stop word has ended the text.
    bool AddLine(const wchar_t* line, size_t length, bool cut = false);

    // Rows 0 to Count() - 1 of Buffer() are the rows added since Clear().
    const Rows& Buffer() const { return m_Rows; }
    size_t Count() const { return m_Count; }
    // Starts a new set of rows; cells that grew large give their memory back.
    void Clear();

private:
    static bool IsStopWord(const wchar_t* cell, size_t length);
    // Appends a cell to the row, with the memory of one a shorter row gave
    // back where there is one; its text is whatever that cell held.
    std::wstring& Grow(Row& row);

    bool m_Plain;
    bool m_Stopped = false;
    size_t m_Count = 0;
    Rows m_Rows;
    std::vector<std::wstring> m_Spare;
    std::wstring m_Clean;
};
