#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <QByteArray>

#include <cstdint>

class CCsvLoader;
class CItem;
class CTreeItemRoot;

// What the gateway reads from its configuration file: the tree, the run
// parameters of the INIFILE tail and the users block. The file on disk is
// scrambled; all three are found in the clear text.
class CGatewayConfig
{
public:
    // Reads the file and takes the run parameters and users from its tail,
    // which stands behind the tree; the tree is left for ReadTree.
    bool Read(const std::string& path, std::string& error);
    // Fills the tree under `root` from the file Read took. False, with the
    // first bad row and its reason, unless every row loads: the gateway never
    // runs on half a configuration. The file's bytes are let go either way.
    // `channelRead` is given each channel once every row below it is read.
    bool ReadTree(CTreeItemRoot* root, std::string& error,
                  const std::function<void(CItem*)>& channelRead = nullptr);
    // Takes the tail and users of an already clear text (tests, plain files).
    void Parse(const std::string& clearText);

    // Keys of [options]: port, log, allowanonimus, derFile, pemFile, trustFolder.
    std::map<std::string, std::string> options;
    // (login, password) pairs in file order.
    std::vector<std::pair<std::string, std::string>> users;

private:
    // Rows are read one at a time, as the program's reader decodes them, so
    // that a bad row is known by its number; false at the first bad one.
    bool ReadRows(CTreeItemRoot* root, std::string& error,
                  const std::function<void(CItem*)>& channelRead) const;
    // Why the item of a data row the reader took cannot run, empty when it can.
    static std::string Refusal(const CCsvLoader& loader);
    // The ';' of line `number` (from 1) counted in the file's bytes: a line
    // past the decoder's bound is only partly decoded.
    std::size_t SemicolonsOfLine(std::uint64_t number) const;

    std::string m_path;
    QByteArray m_bytes;
};
