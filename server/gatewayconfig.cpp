#include "server/gatewayconfig.h"

#include "config/configtail.h"
#include "config/csvimporter.h"
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
    QString clear;
    return ReadClear(path, clear, error);
}

bool CGatewayConfig::Read(const std::string& path, CTreeItemRoot* root, std::string& error)
{
    QString clear;
    if (!ReadClear(path, clear, error))
        return false;
    if (!ReadTree(clear, root, error)) {
        error = "конфигурация " + path + " не загружается: " + error;
        return false;
    }
    return true;
}

bool CGatewayConfig::ReadClear(const std::string& path, QString& clear, std::string& error)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        error = "не удалось прочитать " + path;
        return false;
    }
    clear = CScrambler::Decode(file.readAll());
    if (file.error() != QFileDevice::NoError) {
        error = "не удалось дочитать " + path + " до конца";
        return false;
    }
    // The tail and the users block stand behind the tree: only that part is copied.
    const qsizetype tail = clear.indexOf(QLatin1String(kTailMarker));
    const qsizetype usersAt = clear.indexOf(QLatin1String("USERS\n\n"));
    const qsizetype from = tail < 0 ? usersAt : usersAt < 0 ? tail : std::min(tail, usersAt);
    Parse(from < 0 ? std::string() : QStringView(clear).mid(from).toString().toStdString());
    return true;
}

bool CGatewayConfig::ReadTree(const QString& clear, CTreeItemRoot* root, std::string& error)
{
    if (clear.isEmpty()) {
        error = "файл пуст";
        return false;
    }
    CCsvLoader loader(root);
    CRowSplitter splitter(false);
    const QStringView text(clear);
    std::uint64_t rows = 0;
    for (qsizetype from = 0; from < text.size(); ++rows) {
        qsizetype lf = text.indexOf(u'\n', from);
        if (lf < 0)
            lf = text.size();
        const QStringView line = text.mid(from, lf - from);
        from = lf + 1;
        // Lines are counted as an editor counts them.
        const std::string row = "Строка " + std::to_string(rows + 1) + ": ";
        if (std::size_t(line.count(u';')) > CRowSplitter::kMaxCells) {
            error = row + "полей больше " + std::to_string(CRowSplitter::kMaxCells);
            return false;
        }
        const std::wstring cells = line.left(CRowSplitter::kMaxLineChars).toString().toStdWString();
        splitter.Clear();
        if (!splitter.AddLine(cells.data(), cells.size(),
                              std::size_t(line.size()) > CRowSplitter::kMaxLineChars))
            break;
        const CCsvLoader::Row& cellsOfRow = splitter.Buffer()[0];
        const std::string before = loader.LastRowError();
        loader.m_RowIndex = rows + 1;
        const bool dataRow = !cellsOfRow.empty() && cellsOfRow[0].empty();
        if (loader.Analyse(cellsOfRow)) {
            const std::string why = dataRow ? Refusal(loader) : std::string();
            if (why.empty())
                continue;
            error = row + why;
            return false;
        }
        if (loader.LastRowError() != before) {
            const std::string field =
                CRowRefusal::Describe(loader.m_Section, cellsOfRow, loader.LastRowError());
            error = field.empty() ? loader.LastRowError() : row + field;
        } else if (dataRow && loader.m_Section == 3 && loader.m_CurChannel) {
            error =
                row + CRowRefusal::Field(3, cellsOfRow, 2,
                                         "такой адрес уже есть в канале " + loader.m_CurChannel->GetName());
        } else if (!cellsOfRow.empty() && !cellsOfRow[0].empty() && cellsOfRow[0] != L"CHANNEL" &&
                   cellsOfRow[0] != L"DEVICE" && cellsOfRow[0] != L"GROUP" && cellsOfRow[0] != L"TAG") {
            error = row + "неизвестная строка";
        } else {
            error = row + "строка не на своём месте";
        }
        return false;
    }
    if (rows == 0) {
        error = "нет строк конфигурации";
        return false;
    }
    return true;
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
    const std::size_t usersAt = text.find("USERS\n\n");
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
