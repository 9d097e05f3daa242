#include "config/csvimporter.h"

#include "config/fileldcountexception.h"
#include "config/fileldexception.h"
#include "config/linedecoder.h"
#include "config/rowsplitter.h"
#include "config/rowtext.h"
#include "config/scrambler.h"
#include "model/cchannelinfo.h"
#include "model/channeldata.h"
#include "model/datagdata.h"
#include "model/dataginfo.h"
#include "model/devicedata.h"
#include "model/deviceinfo.h"
#include "model/emuldata_const.h"
#include "model/emuldata_sin.h"
#include "model/groupdata.h"
#include "model/groupinfo.h"
#include "model/modbus_types.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"
#include "model/treeitemroot.h"
#include "model/usernotifier.h"

#include <QFile>
#include <QString>

#include <codecvt>
#include <cstring>
#include <fstream>
#include <locale>
#include <sstream>
#include <system_error>

const std::string g_cCSV = ";";

namespace {

// Rows are handed to the state machine in slices, so that a large file is
// never held as cells all at once; the verdict is the same as for one slice.
// A slice ends at either bound, whichever comes first.
constexpr size_t kRowsPerSlice = 4096;
constexpr size_t kCharsPerSlice = 1 << 20;
// The file is read in pieces of this size.
constexpr int kChunkBytes = 1 << 20;

// Cell n of a channel row; a row too short for its kind is a count failure
// rather than a read past its end.
const std::wstring& ChannelCell(const CCsvLoader::Row& row, size_t n, uint32_t line, uint32_t expected)
{
    if (n >= row.size())
        throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), expected);
    return row[n];
}

// A row cut by the splitter for having too many cells, or characters.
void CheckNotTooLong(const CCsvLoader::Row& row, uint32_t line, uint32_t expected)
{
    if (row.size() > CRowSplitter::kMaxCells)
        throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), expected);
}

// A property that refuses its cell fails the row, naming the field.
template <typename Record>
void Require(bool (Record::*set)(const std::wstring&), Record& record, const CCsvLoader::Row& row,
             size_t cell, uint32_t line, uint32_t field)
{
    if (!(record.*set)(row[cell]))
        throw CFileldException(line, field);
}

// Entry of a table by a stored number; numbers outside it give an empty entry.
template <typename T> const T& Entry(const std::vector<T>& table, long long index)
{
    static const T empty;
    return index >= 0 && static_cast<size_t>(index) < table.size() ? table[index] : empty;
}

// g_cCSV in the wide form the writer needs, widened once.
const std::wstring& Separator()
{
    static const std::wstring sep(g_cCSV.begin(), g_cCSV.end());
    return sep;
}

const wchar_t kChannelHeader[] = L"CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n";
const wchar_t kDeviceHeader[] = L"DEVICE;1;2;3;4;5;6;7\n";
const wchar_t kGroupHeader[] = L"GROUP;1;2;3\n";
const wchar_t kTagHeader[] = L"TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n";

} // namespace

CCsvLoader::CCsvLoader(CTreeItemRoot* root)
    : m_pRoot(root), m_FieldErrorFormat("Строка %d: ошибка поля <%u>.")
{
}

CCsvLoader::~CCsvLoader() = default;

bool CCsvLoader::Load(const std::string& path, bool plain)
{
    m_Total = 0;
    m_Done = 0;

    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly))
        return plain ? Load(Rows()) : false;

    CRowSplitter splitter(plain);
    uint64_t fed = 0;
    bool result = true;
    bool reading = true;
    size_t sliceChars = 0;
    CLineDecoder decoder(plain, [&](const wchar_t* line, size_t length, bool cut) {
        if (!splitter.AddLine(line, length, cut))
            return false;
        sliceChars += length;
        if (splitter.Count() >= kRowsPerSlice || sliceChars >= kCharsPerSlice) {
            reading = Feed(splitter.Buffer().data(), splitter.Count(), fed, result);
            fed += splitter.Count();
            splitter.Clear();
            sliceChars = 0;
        }
        return reading;
    });

    // The file is read in chunks and never held whole: memory stays bounded
    // for any input. A plain file that isn't UTF-8 throughout makes the load
    // false, and so does a file that can't be read to its end.
    bool readFault = false;
    QByteArray chunk;
    size_t carried = 0; // bytes of a character cut by the end of the last chunk
    bool more = true;
    bool going = true;
    while (going && more) {
        chunk.resize(qsizetype(carried) + kChunkBytes);
        const qint64 got = file.read(chunk.data() + carried, kChunkBytes);
        if (got < 0) {
            readFault = true;
            break;
        }
        more = got > 0;
        const size_t size = carried + size_t(got);
        size_t used = 0;
        going = decoder.Decode(chunk.constData(), size, more, used);
        carried = size - used;
        if (going && carried)
            std::memmove(chunk.data(), chunk.constData() + used, carried);
    }
    file.close();
    if (reading)
        decoder.Finish();
    if (reading)
        Feed(splitter.Buffer().data(), splitter.Count(), fed, result);
    fed += splitter.Count();
    if (fed == 0)
        return false;
    return result && !readFault && decoder.Complete();
}

bool CCsvLoader::Load(const Rows& rows)
{
    if (rows.empty())
        return false;
    bool result = true;
    Feed(rows.data(), rows.size(), 0, result);
    return result;
}

bool CCsvLoader::Feed(const Row* rows, size_t count, uint64_t first, bool& result)
{
    for (size_t i = 0; i < count; ++i) {
        m_RowIndex = first + i;
        if (!Analyse(rows[i])) {
            if (m_Status == 128)
                return false;
            result = false;
        }
    }
    return true;
}

bool CCsvLoader::Analyse(const Row& row)
{
    if (row.empty())
        return true;

    const std::wstring& key = row[0];
    // More cells than any row of the format has: a header row is refused as it
    // stands, a data row fails its count check below.
    const bool tooLong = row.size() > CRowSplitter::kMaxCells;
    if (tooLong && !key.empty())
        return false;
    if (key == L"CHANNEL") {
        if ((m_Status == 1 || m_Status == 2 || m_Status == 4 || m_Status == 8 || m_Status == 16) &&
            m_Section < 5) {
            m_Section = 1;
            m_Status = 1;
            return true;
        }
        return false;
    }
    if (key == L"GROUP" || key == L"DEVICE" || key == L"TAG") {
        const bool group = key == L"GROUP";
        const bool device = key == L"DEVICE";
        const uint8_t own = group ? 4 : device ? 8 : 16;
        const uint8_t lowest = group || device ? 1 : 2;
        if (m_Status != 1 && m_Status != own)
            return false;
        if (m_Section >= lowest && m_Section <= 4) {
            m_Section = group ? 2 : device ? 3 : 4;
            m_Status = 1;
            return true;
        }
        if (m_Section < lowest)
            m_Status = 2;
        return false;
    }
    if (!key.empty())
        return false;

    if (m_Status != 1)
        return false;
    switch (m_Section) {
    case 1: {
        std::unique_ptr<CChannelInfo> node(new CChannelInfo(nullptr));
        node->SetParent(m_pRoot);
        if (!AnalyseChannel(row, node.get())) {
            m_Status = 2;
            return false;
        }
        m_CurChannel = node.get();
        Adopt(m_pRoot, node.release());
        return true;
    }
    case 2: {
        if (!m_CurDevice)
            return false;
        std::unique_ptr<CGroupInfo> node(new CGroupInfo(nullptr));
        node->SetParent(m_CurDevice);
        if (!AnalyseGroup(row, node.get())) {
            m_Status = 2;
            return false;
        }
        m_CurGroup = node.get();
        Adopt(m_CurDevice, node.release());
        return true;
    }
    case 3: {
        if (!m_CurChannel)
            return false;
        std::unique_ptr<CDeviceInfo> node(new CDeviceInfo(nullptr));
        node->SetParent(m_CurChannel);
        if (!AnalyseDevice(row, node.get())) {
            m_Status = 2;
            return false;
        }
        m_CurDevice = node.get();
        Adopt(m_CurChannel, node.release());
        return true;
    }
    case 4: {
        if (!m_CurGroup)
            return false;
        std::unique_ptr<CDATagInfo> node(new CDATagInfo(nullptr));
        node->SetParent(m_CurGroup);
        if (!AnalyseDATag(row, node.get()))
            return false;
        m_CurDATag = node.get();
        Adopt(m_CurGroup, node.release());
        return true;
    }
    default:
        return false;
    }
}

void CCsvLoader::Adopt(CItem* parent, CItem* node)
{
    // The map refuses a taken name without a word; only its size tells.
    const uint32_t before = parent->size();
    parent->AppendChild(node);
    if (parent->size() == before)
        m_Orphans.emplace_back(node);
}

bool CCsvLoader::AnalyseChannel(const Row& row, CChannelInfo* node)
{
    if (row.empty() || !node)
        return false;
    const uint32_t line = static_cast<uint32_t>(m_RowIndex);
    try {
        CheckNotTooLong(row, line, 14);
        CChannelData data(node);
        const std::pair<bool (CChannelData::*)(const std::wstring&), uint32_t> common[] = {
            {&CChannelData::Set_Name, 1},         {&CChannelData::Set_TypeChannel, 2},
            {&CChannelData::Set_TypeProtocol, 3}, {&CChannelData::Set_Timeout, 4},
            {&CChannelData::Set_QuanRetry, 5},    {&CChannelData::Set_TimeBusy, 6},
        };
        for (const auto& [set, field] : common) {
            if (!(data.*set)(ChannelCell(row, field, line, 6)))
                throw CFileldException(line, field);
        }
        if (!node->Init() || !node->Port)
            return false;

        if (auto* com = dynamic_cast<CPortIO_COMInfo*>(node->Port)) {
            const std::pair<bool (CPortIO_Data_COM::*)(const std::wstring&), uint32_t> serial[] = {
                {&CPortIO_Data_COM::Set_ComNo, 7},       {&CPortIO_Data_COM::Set_BaudRate, 8},
                {&CPortIO_Data_COM::Set_DataBits, 9},    {&CPortIO_Data_COM::Set_StopBits, 10},
                {&CPortIO_Data_COM::Set_Parity, 11},     {&CPortIO_Data_COM::Set_bEcho, 12},
                {&CPortIO_Data_COM::Set_RtsControl, 13}, {&CPortIO_Data_COM::Set_DtrControl, 14},
            };
            for (const auto& [set, field] : serial) {
                if (!(com->*set)(ChannelCell(row, field, line, 14)))
                    throw CFileldException(line, field);
            }
        } else if (auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(node->Port)) {
            const std::pair<bool (CPortIO_Data_TCP::*)(const std::wstring&), uint32_t> net[] = {
                {&CPortIO_Data_TCP::Set_IP, 7},
                {&CPortIO_Data_TCP::Set_IP_Port, 8},
                {&CPortIO_Data_TCP::Set_TimeoutConnect, 9},
            };
            for (const auto& [set, field] : net) {
                if (!(tcp->*set)(ChannelCell(row, field, line, 9)))
                    throw CFileldException(line, field);
            }
        }

        // Two TCP channels on one address are allowed; two on one COM port aren't.
        if (m_pRoot->HasChildDublicate(node, nullptr) && node->TypeChannel == 0) {
            CUserNotifier::Warning(QStringLiteral("Внимание"),
                                   QStringLiteral("Обнаружено дублирование COM порта"));
            throw CFileldException(line, 15, "Дублирование номера COM порта");
        }
        return true;
    } catch (const CImportException& e) {
        m_LastRowError = e.what();
        return false;
    }
}

bool CCsvLoader::AnalyseDevice(const Row& row, CDeviceInfo* node)
{
    if (!node || row.empty())
        return false;
    const uint32_t line = static_cast<uint32_t>(m_RowIndex);
    try {
        if (row.size() < 8)
            throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), 7);
        CheckNotTooLong(row, line, 7);
        CDeviceData data(node);
        Require(&CDeviceData::Set_Name, data, row, 1, line, 1);
        Require(&CDeviceData::Set_Addr, data, row, 2, line, 2);
        Require(&CDeviceData::Set_bEmulation, data, row, 3, line, 3);
        Require(&CDeviceData::Set_MaxRegsInReqv, data, row, 4, line, 4);
        Require(&CDeviceData::Set_MaxDiscretsInReqv, data, row, 5, line, 5);
        Require(&CDeviceData::Set_MaxFragmentation, data, row, 6, line, 6);
        Require(&CDeviceData::Set_bExchange, data, row, 7, line, 7);

        bool result = true;
        if (m_CurChannel && m_CurChannel->HasChildDublicate(node, nullptr)) {
            CUserNotifier::Warning(QStringLiteral("Внимание"),
                                   QStringLiteral("Обнаружено дублирование устройства"));
            result = false;
        }
        node->Init();
        return result;
    } catch (const CImportException& e) {
        m_LastRowError = e.what();
        return false;
    }
}

bool CCsvLoader::AnalyseGroup(const Row& row, CGroupInfo* node)
{
    if (!node || row.empty() || row.size() < 4 || row.size() > CRowSplitter::kMaxCells)
        return false;
    const uint32_t line = static_cast<uint32_t>(m_RowIndex);
    try {
        // The unit comes before the rate: the rate's range depends on it.
        CGroupData data(node);
        Require(&CGroupData::Set_Name, data, row, 1, line, 1);
        Require(&CGroupData::Set_MU_UpdateRate, data, row, 3, line, 1);
        Require(&CGroupData::Set_UpdateRate, data, row, 2, line, 1);
        node->Init();
        return true;
    } catch (const CImportException& e) {
        m_LastRowError = e.what();
        return false;
    }
}

bool CCsvLoader::AnalyseDATag(const Row& row, CDATagInfo* node)
{
    if (row.empty() || !node)
        return false;
    const uint32_t line = static_cast<uint32_t>(m_RowIndex);
    try {
        if (row.size() < 17)
            throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), 16);
        CheckNotTooLong(row, line, 17);
        CDATagData data(node);
        Require(&CDATagData::Set_Name, data, row, 1, line, 1);
        Require(&CDATagData::Set_RegType, data, row, 2, line, 2);
        Require(&CDATagData::Set_Addr, data, row, 3, line, 3);
        Require(&CDATagData::Set_RegsInSegment, data, row, 4, line, 4);
        Require(&CDATagData::Set_SegmentPos, data, row, 5, line, 5);
        Require(&CDATagData::Set_bRead, data, row, 6, line, 6);
        if (node->RegType == MRT_Coil || node->RegType == MRT_HoldingRegister) {
            Require(&CDATagData::Set_bWrite, data, row, 7, line, 7);
            Require(&CDATagData::Set_bWriteGroup, data, row, 8, line, 8);
        }
        if (node->RegType == MRT_InputRegister || node->RegType == MRT_HoldingRegister) {
            Require(&CDATagData::Set_ValType, data, row, 9, line, 9);
            Require(&CDATagData::Set_ByteOrder, data, row, 10, line, 10);
            if (node->ValType <= MVT_HighByte)
                Require(&CDATagData::Set_TransformType, data, row, 11, line, 11);
        }

        // The record made for a type is of that type's class.
        delete node->Transform;
        node->Transform = CDATagInfo::New_Transform(node->TransformType, nullptr);
        if (node->TransformType == TT_LineScale) {
            auto* scale = static_cast<CTransform_LineScaleData*>(node->Transform);
            scale->VarType = ModbusTypes::GetValueVT(node->RegType, node->ValType);
            Require(&CTransform_LineScaleData::Set_SrcMin, *scale, row, 12, line, 12);
            Require(&CTransform_LineScaleData::Set_SrcMax, *scale, row, 13, line, 13);
            Require(&CTransform_LineScaleData::Set_DstMin, *scale, row, 14, line, 14);
            Require(&CTransform_LineScaleData::Set_DstMax, *scale, row, 15, line, 15);
        } else if (node->TransformType == TT_Factor) {
            auto* factor = static_cast<CTransform_FactorData*>(node->Transform);
            Require(&CTransform_FactorData::Set_Factor, *factor, row, 12, line, 12);
        }

        Require(&CDATagData::Set_EmulType, data, row, 16, line, 16);
        delete node->Emul;
        node->Emul = CDATagInfo::New_Emul(node->EmulType, nullptr);
        if (node->EmulType == ET_Const) {
            auto* constant = static_cast<CEmulData_Const*>(node->Emul);
            if (row.size() < 18)
                throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), 17);
            constant->Const.vt = ModbusTypes::GetValueVT(node->RegType, node->ValType);
            Require(&CEmulData_Const::Set_Const, *constant, row, 17, line, 17);
        } else if (node->EmulType == ET_Sin) {
            auto* sine = static_cast<CEmulData_Sin*>(node->Emul);
            if (row.size() < 18)
                throw CFileldCountException(line, static_cast<uint32_t>(row.size() - 1), 17);
            Require(&CEmulData_Sin::Set_Period, *sine, row, 17, line, 17);
        }
        node->Init();
        return true;
    } catch (const CImportException& e) {
        m_LastRowError = e.what();
        return false;
    }
}

bool CCsvLoader::Export(const std::string& path)
{
    m_Total = 0;
    m_Done = 0;
    try {
        std::wofstream out;
        // Classic numbers whatever the program's locale, UTF-8 without a mark.
        out.imbue(std::locale(std::locale::classic(), new std::codecvt_utf8<wchar_t, 0x10FFFF>));
        out.open(path, std::ios::out | std::ios::trunc);
        // A file that can't be opened isn't looked at (the scrambling pass
        // after a save finds it missing); a write that fails on the way is.
        const bool opened = out.is_open();
        const bool result = Export(out);
        out.close();
        return result && !(opened && out.fail());
    } catch (const std::system_error&) {
        return false;
    }
}

bool CCsvLoader::Export(std::wostream& out)
{
    for (auto& [channelName, channel] : *m_pRoot) {
        out << kChannelHeader;
        ExportChannel(out, dynamic_cast<CChannelInfo*>(channel));
        for (auto& [deviceName, device] : *channel) {
            out << kDeviceHeader;
            if (!ExportDevice(out, dynamic_cast<CDeviceInfo*>(device)))
                return false;
            for (auto& [groupName, group] : *device) {
                out << kGroupHeader;
                if (!ExportGroup(out, dynamic_cast<CGroupInfo*>(group)))
                    return false;
                if (!group->empty()) {
                    out << kTagHeader;
                    for (auto& [tagName, tag] : *group) {
                        if (!ExportDATag(out, dynamic_cast<CDATagInfo*>(tag)))
                            return false;
                        ++m_Done;
                    }
                }
                ++m_Done;
            }
            ++m_Done;
        }
        ++m_Done;
    }
    return true;
}

bool CCsvLoader::ExportChannel(std::wostream& out, CChannelInfo* node)
{
    if (!node)
        return false;
    const std::wstring& sep = Separator();
    CRowText row;
    row << sep;
    row.Name(node->GetName()) << sep << Entry(CChannelData::m_wszTypeChannel, node->TypeChannel) << sep
                              << Entry(CChannelData::m_wszTypeProtocol, node->TypeProtocol) << sep
                              << node->Timeout << sep << static_cast<unsigned>(node->QuanRetry) << sep
                              << node->TimeBusy;
    if (node->TypeChannel == 0) {
        if (const auto* com = dynamic_cast<const CPortIO_COMInfo*>(node->Port)) {
            row << sep << com->ComNo << sep << com->BaudRate << sep << static_cast<unsigned>(com->DataBits)
                << sep << static_cast<unsigned>(com->StopBits) << sep
                << Entry(CPortIO_Data_COM::m_wszParity, com->Parity) << sep << Entry(g_wszYesNo, com->bEcho)
                << sep << Entry(CPortIO_Data_COM::m_wszRtsControl, com->RtsControl) << sep
                << Entry(CPortIO_Data_COM::m_wszDtrControl, com->DtrControl);
        }
    } else if (node->TypeChannel == 1) {
        if (const auto* tcp = dynamic_cast<const CPortIO_TCPInfo*>(node->Port)) {
            row << sep << (tcp->IP & 0xFF) << L'.' << ((tcp->IP >> 8) & 0xFF) << L'.'
                << ((tcp->IP >> 16) & 0xFF) << L'.' << (tcp->IP >> 24) << sep << tcp->IP_Port << sep
                << tcp->TimeoutConnect;
        }
    }
    row << L'\n';
    row.WriteTo(out);
    return true;
}

bool CCsvLoader::ExportDevice(std::wostream& out, CDeviceInfo* node)
{
    if (!node)
        return false;
    const std::wstring& sep = Separator();
    CRowText row;
    row << sep;
    row.Name(node->GetName()) << sep << static_cast<unsigned>(node->Addr) << sep
                              << Entry(g_wszYesNo, node->bEmulation) << sep
                              << static_cast<unsigned>(node->MaxRegsInReqv) << sep << node->MaxDiscretsInReqv
                              << sep << static_cast<unsigned>(node->MaxFragmentation) << sep
                              << Entry(g_wszYesNo, node->bExchange) << L'\n';
    row.WriteTo(out);
    return true;
}

bool CCsvLoader::ExportGroup(std::wostream& out, CGroupInfo* node)
{
    if (!node)
        return false;
    const std::wstring& sep = Separator();
    CRowText row;
    row << sep;
    row.Name(node->GetName()) << sep << node->UpdateRate << sep
                              << Entry(CGroupData::m_wszMU_UpdateRate, node->MU_UpdateRate) << L'\n';
    row.WriteTo(out);
    return true;
}

bool CCsvLoader::ExportDATag(std::wostream& out, CDATagInfo* node)
{
    if (!node)
        return false;
    const std::wstring& sep = Separator();
    const bool output = node->RegType == MRT_Coil || node->RegType == MRT_HoldingRegister;
    const bool registers = node->RegType == MRT_InputRegister || node->RegType == MRT_HoldingRegister;

    CRowText row;
    row << sep;
    row.Name(node->GetName()) << sep << Entry(g_wszModbusRegType, node->RegType) << sep << node->Addr << sep
                              << node->RegsInSegment << sep << node->SegmentPos << sep
                              << Entry(g_wszYesNo, node->bRead);
    row << sep;
    if (output)
        row << Entry(g_wszYesNo, node->bWrite);
    row << sep;
    if (output)
        row << Entry(CDATagData::m_wsz_bWriteGroup, node->bWriteGroup);
    row << sep;
    if (registers)
        row << Entry(g_wszModbusValType, node->ValType);
    row << sep;
    // A byte order of 255 names no text of its row and writes an empty field.
    if (registers && node->ValType <= MVT_Int32)
        row << Entry(Entry(g_wszByteOrder, ModbusTypes::GetRegsCount(node->ValType)), node->ByteOrder);
    row << sep;
    if (registers && node->ValType <= MVT_HighByte && node->TransformType != -1)
        row << Entry(g_wszTransformType, node->TransformType);

    const auto* scale = dynamic_cast<const CTransform_LineScaleData*>(node->Transform);
    const auto* factor = dynamic_cast<const CTransform_FactorData*>(node->Transform);
    if (node->TransformType == TT_LineScale && scale) {
        row << sep << static_cast<double>(scale->SrcMin) << sep << static_cast<double>(scale->SrcMax) << sep
            << static_cast<double>(scale->DstMin) << sep << static_cast<double>(scale->DstMax);
    } else if (node->TransformType == TT_Factor && factor) {
        row << sep << static_cast<double>(factor->Factor) << sep << sep << sep;
    } else {
        row << sep << sep << sep << sep;
    }

    row << sep << Entry(g_wszEmulType, node->EmulType);
    if (node->EmulType == ET_Const) {
        if (const auto* constant = dynamic_cast<const CEmulData_Const*>(node->Emul))
            row << sep << static_cast<double>(static_cast<float>(constant->Const.dblVal));
    } else if (node->EmulType == ET_Sin) {
        if (const auto* sine = dynamic_cast<const CEmulData_Sin*>(node->Emul))
            row << sep << sine->Period;
    } else if (node->EmulType == -1) {
        row << sep;
    }
    row << L'\n';
    row.WriteTo(out);
    return true;
}

std::string CCsvLoader::RowOf(CItem* item)
{
    std::wostringstream out;
    CCsvLoader writer(nullptr);
    switch (item ? item->GetType() : itRoot) {
    case itChannel:
        writer.ExportChannel(out, static_cast<CChannelInfo*>(item));
        break;
    case itDevice:
        writer.ExportDevice(out, static_cast<CDeviceInfo*>(item));
        break;
    case itGroup:
        writer.ExportGroup(out, static_cast<CGroupInfo*>(item));
        break;
    case itTag:
        writer.ExportDATag(out, static_cast<CDATagInfo*>(item));
        break;
    default:
        break;
    }
    QString row = QString::fromStdWString(out.str());
    if (row.endsWith(u'\n'))
        row.chop(1);
    return row.toStdString();
}

std::wstring CCsvLoader::GetArrStr(const std::vector<std::wstring>& table, int index)
{
    return Entry(table, index);
}

float CCsvLoader::GetCompliteState() const
{
    return static_cast<float>(m_Done) / static_cast<float>(m_Total) * 100.0f;
}
