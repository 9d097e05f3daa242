#include "server/gatewayconfig.h"

#include "config/configtail.h"
#include "config/csvimporter.h"
#include "config/linedecoder.h"
#include "config/rowsplitter.h"
#include "config/scrambler.h"
#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "server/modbus/modbusbridge.h"
#include "server/rowrefusal.h"

#include <QFile>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <sstream>

namespace {

const char kTailMarker[] = "INIFILE\n\n";
const char kUsersMarker[] = "USERS\n\n";

std::string Trim(const std::string& s)
{
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos)
        return std::string();
    return s.substr(b, s.find_last_not_of(" \t\r") - b + 1);
}

} // namespace

bool CGatewayConfig::Read(const std::string& path, std::string& error)
{
    m_path = path;
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        error = "не удалось прочитать " + path;
        return false;
    }
    m_bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        error = "не удалось дочитать " + path + " до конца";
        return false;
    }
    // Each character is scrambled on its own and UTF-8 keeps its sequences
    // apart, so the tail is found in the bytes and only it is decoded.
    const qsizetype tail = m_bytes.indexOf(CScrambler::Encode(QLatin1String(kTailMarker)));
    const qsizetype usersAt = m_bytes.indexOf(CScrambler::Encode(QLatin1String(kUsersMarker)));
    const qsizetype from = tail < 0 ? usersAt : usersAt < 0 ? tail : std::min(tail, usersAt);
    Parse(from < 0 ? std::string() : CScrambler::Decode(m_bytes.mid(from)).toStdString());
    return true;
}

bool CGatewayConfig::ReadTree(CTreeItemRoot* root, std::string& error,
                              const std::function<void(CItem*)>& channelRead)
{
    const bool read = ReadRows(root, error, channelRead);
    m_bytes = QByteArray();
    if (!read)
        error = "конфигурация " + m_path + " не загружается: " + error;
    return read;
}

bool CGatewayConfig::ReadRows(CTreeItemRoot* root, std::string& error,
                              const std::function<void(CItem*)>& channelRead) const
{
    if (m_bytes.isEmpty()) {
        error = "файл пуст";
        return false;
    }
    CCsvLoader loader(root);
    CRowSplitter splitter(false);
    std::uint64_t rows = 0;
    bool good = true;
    // Rows go to the channel read last: the one before it is complete.
    CItem* channel = nullptr;
    // Lines are counted as an editor counts them.
    const auto fail = [&](const std::string& why) {
        error = "Строка " + std::to_string(rows + 1) + ": " + why;
        good = false;
        return false;
    };
    CLineDecoder decoder(false, [&](const wchar_t* line, std::size_t length, bool cut) {
        const std::size_t semicolons =
            cut ? SemicolonsOfLine(rows + 1) : std::size_t(std::count(line, line + length, L';'));
        if (semicolons > CRowSplitter::kMaxCells)
            return fail("полей больше " + std::to_string(CRowSplitter::kMaxCells));
        splitter.Clear();
        if (!splitter.AddLine(line, length, cut))
            return false;
        const CCsvLoader::Row& cellsOfRow = splitter.Buffer()[0];
        const std::string before = loader.LastRowError();
        loader.m_RowIndex = rows + 1;
        const bool dataRow = !cellsOfRow.empty() && cellsOfRow[0].empty();
        if (loader.Analyse(cellsOfRow)) {
            const std::string why = dataRow ? Refusal(loader) : std::string();
            if (!why.empty())
                return fail(why);
            if (dataRow && loader.m_Section == 1) {
                if (channel && channelRead)
                    channelRead(channel);
                channel = loader.m_CurChannel;
            }
            ++rows;
            return true;
        }
        if (loader.LastRowError() != before) {
            const std::string field =
                CRowRefusal::Describe(loader.m_Section, cellsOfRow, loader.LastRowError());
            if (!field.empty())
                return fail(field);
            error = loader.LastRowError();
            good = false;
            return false;
        }
        if (dataRow && loader.m_Section == 3 && loader.m_CurChannel)
            return fail(CRowRefusal::Field(
                3, cellsOfRow, 2, "такой адрес уже есть в канале " + loader.m_CurChannel->GetName()));
        if (!cellsOfRow.empty() && !cellsOfRow[0].empty() && cellsOfRow[0] != L"CHANNEL" &&
            cellsOfRow[0] != L"DEVICE" && cellsOfRow[0] != L"GROUP" && cellsOfRow[0] != L"TAG")
            return fail("неизвестная строка");
        return fail("строка не на своём месте");
    });
    std::size_t used = 0;
    if (decoder.Decode(m_bytes.constData(), std::size_t(m_bytes.size()), false, used))
        decoder.Finish();
    if (good && rows == 0) {
        error = "нет строк конфигурации";
        return false;
    }
    if (good && channel && channelRead)
        channelRead(channel);
    return good;
}

std::size_t CGatewayConfig::SemicolonsOfLine(std::uint64_t number) const
{
    const QByteArray lf = CScrambler::Encode(QStringLiteral("\n"));
    const QByteArray semicolon = CScrambler::Encode(QStringLiteral(";"));
    qsizetype from = 0;
    for (std::uint64_t line = 1; line < number && from >= 0; ++line) {
        from = m_bytes.indexOf(lf, from);
        if (from >= 0)
            from += lf.size();
    }
    if (from < 0)
        return 0;
    qsizetype end = m_bytes.indexOf(lf, from);
    if (end < 0)
        end = m_bytes.size();
    std::size_t count = 0;
    for (qsizetype at = m_bytes.indexOf(semicolon, from); at >= 0 && at < end;
         at = m_bytes.indexOf(semicolon, at + semicolon.size()))
        ++count;
    return count;
}

std::string CGatewayConfig::Refusal(const CCsvLoader& loader)
{
    CItem* node = nullptr;
    switch (loader.m_Section) {
    case 1:
        node = loader.m_CurChannel;
        break;
    case 2:
        node = loader.m_CurGroup;
        break;
    case 3:
        node = loader.m_CurDevice;
        break;
    default:
        node = loader.m_CurDATag;
        break;
    }
    // The reader lets a second item of one name go without a word.
    if (!node || node->GetParent()->FindChildByName(node->GetName().c_str()) != node)
        return "поле 1 «Имя» = «" + (node ? node->GetName() : std::string()) + "»: такое имя уже есть";
    if (loader.m_Section != 4)
        return std::string();
    const std::string why = CModbusBridge::OutOfBounds(loader.m_CurDATag);
    if (why.empty())
        return std::string();
    std::string name;
    node->GetFullName(name);
    return "тег " + name + ": " + why;
}

void CGatewayConfig::Parse(const std::string& text)
{
    options.clear();
    users.clear();

    const std::size_t tail = text.find(kTailMarker);
    const std::size_t usersAt = text.find(kUsersMarker);
    if (tail != std::string::npos) {
        const std::size_t end = usersAt != std::string::npos && usersAt > tail ? usersAt : text.size();
        std::istringstream lines(text.substr(tail, end - tail));
        std::string line;
        while (std::getline(lines, line)) {
            const std::size_t eq = line.find(" = ");
            if (eq != std::string::npos)
                options[Trim(line.substr(0, eq))] = Trim(line.substr(eq + 3));
        }
    }
    const std::string list = CConfigTail::UsersList(QString::fromStdString(text)).toStdString();
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t sep; (sep = list.find(';', start)) != std::string::npos; start = sep + 1)
        parts.push_back(list.substr(start, sep - start));
    // The text behind the closing ";" is no part of the list.
    for (std::size_t i = 0; i + 1 < parts.size(); i += 2)
        users.emplace_back(parts[i], parts[i + 1]);
}
