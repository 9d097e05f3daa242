#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

class CItem;
class CTreeItemRoot;
class CChannelInfo;
class CDeviceInfo;
class CGroupInfo;
class CDATagInfo;

// The separator of the configuration file's cells.
extern const std::string g_cCSV;

// Reads a configuration file into the tree under a root and writes that tree
// back. One object serves one load or one export: construct it on the root,
// call Load or Export once, drop it. A load goes on after every bad row, keeps
// all that it could read and answers one verdict for the whole file.
class CCsvLoader
{
public:
    using Row = std::vector<std::wstring>;
    using Rows = std::vector<Row>;

    explicit CCsvLoader(CTreeItemRoot* root);
    ~CCsvLoader();
    CCsvLoader(const CCsvLoader&) = delete;
    CCsvLoader& operator=(const CCsvLoader&) = delete;

    // plain true reads the .csv form, false the scrambled .cfg form, which
    // ends at the first stop word (the run-parameter tail or the users block).
    // A plain file that isn't UTF-8 throughout is read up to the line at
    // fault and answers false.
    bool Load(const std::string& path, bool plain);
    bool Load(const Rows& rows);
    bool Analyse(const Row& row);
    bool AnalyseChannel(const Row& row, CChannelInfo* node);
    bool AnalyseDevice(const Row& row, CDeviceInfo* node);
    bool AnalyseGroup(const Row& row, CGroupInfo* node);
    bool AnalyseDATag(const Row& row, CDATagInfo* node);

    // Writes the tree in the plain form; the tail is never written here.
    bool Export(const std::string& path);
    bool Export(std::wostream& out);
    bool ExportChannel(std::wostream& out, CChannelInfo* node);
    bool ExportDevice(std::wostream& out, CDeviceInfo* node);
    bool ExportGroup(std::wostream& out, CGroupInfo* node);
    bool ExportDATag(std::wostream& out, CDATagInfo* node);

    // The data row of one channel, device, group or tag as Export writes it,
    // in UTF-8 and without its line end.
    static std::string RowOf(CItem* item);

    // Entry index of table, or the empty text outside it.
    static std::wstring GetArrStr(const std::vector<std::wstring>& table, int index);
    float GetCompliteState() const;

    CChannelInfo* Import_GetCurChannel() const { return m_CurChannel; }
    CDeviceInfo* Import_GetCurDevice() const { return m_CurDevice; }
    CGroupInfo* Import_GetCurGroup() const { return m_CurGroup; }
    CDATagInfo* Import_GetCurDATag() const { return m_CurDATag; }

    // Text of the last row error caught by an Analyse...; no user sees it.
    const std::string& LastRowError() const { return m_LastRowError; }

    CTreeItemRoot* m_pRoot;
    uint64_t m_RowIndex = 0;
    uint8_t m_Section = 0;
    uint8_t m_Status = 1;
    CChannelInfo* m_CurChannel = nullptr;
    CDeviceInfo* m_CurDevice = nullptr;
    CGroupInfo* m_CurGroup = nullptr;
    CDATagInfo* m_CurDATag = nullptr;
    uint64_t m_Total = 0;
    uint64_t m_Done = 0;
    std::string m_FieldErrorFormat;

private:
    // Runs rows through Analyse, numbering them from first. false once the
    // status asks to stop reading altogether.
    bool Feed(const Row* rows, size_t count, uint64_t first, bool& result);
    // Appends node under parent. A node whose name the parent already holds
    // isn't inserted; it still becomes the current node, so that what follows
    // it stays out of the tree too, and it is freed with the loader.
    void Adopt(CItem* parent, CItem* node);

    std::vector<std::unique_ptr<CItem>> m_Orphans;
    std::string m_LastRowError;
};
