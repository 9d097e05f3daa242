#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

class CCsvLoader;
class CTreeItemRoot;
class QString;

// What the gateway reads from its configuration file: the tree, the run
// parameters of the INIFILE tail and the users block. The file on disk is
// scrambled; all three are found in the clear text.
class CGatewayConfig
{
public:
    // Reads and unscrambles the file and fills the tree under `root`. False,
    // with the first bad row and its reason, unless every row loads: the
    // gateway never runs on half a configuration.
    bool Read(const std::string& path, CTreeItemRoot* root, std::string& error);
    // The run parameters and users only.
    bool Read(const std::string& path, std::string& error);
    // Takes the tail and users of an already clear text (tests, plain files).
    void Parse(const std::string& clearText);

    // Keys of [options]: port, log, allowanonimus, derFile, pemFile, trustFolder.
    std::map<std::string, std::string> options;
    // (login, password) pairs in file order.
    std::vector<std::pair<std::string, std::string>> users;

private:
    // The whole file unscrambled; the tail and the users taken from it.
    bool ReadClear(const std::string& path, QString& clear, std::string& error);
    // Feeds the rows one at a time, so that only one row is held at once and a
    // bad row is known by its number.
    static bool ReadTree(const QString& clear, CTreeItemRoot* root, std::string& error);
    // Why the item of a data row the reader took cannot run, empty when it can.
    static std::string Refusal(const CCsvLoader& loader);
};
