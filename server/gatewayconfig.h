#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

// What the gateway reads from its configuration file besides the tree: the
// run parameters of the INIFILE tail and the users block. The file on disk is
// scrambled; both pieces are found in the clear text.
class CGatewayConfig
{
public:
    // Reads and unscrambles the file. False when it cannot be read.
    bool Read(const std::string& path, std::string& error);
    // Takes an already clear text (tests, plain files).
    void Parse(const std::string& clearText);

    // Keys of [options]: port, log, allowanonimus, derFile, pemFile, trustFolder.
    std::map<std::string, std::string> options;
    // (login, password) pairs in file order.
    std::vector<std::pair<std::string, std::string>> users;
};
