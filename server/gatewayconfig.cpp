#include "server/gatewayconfig.h"

#include "config/configtail.h"
#include "config/scrambler.h"

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
    if (!CScrambler::ReadFile(QString::fromStdString(path), clear)) {
        error = "cannot read " + path;
        return false;
    }
    Parse(clear.toStdString());
    return true;
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
