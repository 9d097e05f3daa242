// libFuzzer target for the configuration reader. The first byte picks the
// form (even: plain .csv, odd: scrambled .cfg); the rest is the file.
//
// Beyond "no crash, no leak": whatever tree a file gives, writing it, reading
// that back and writing again must settle after one round.
#include "config/csvimporter.h"
#include "config/rowsplitter.h"
#include "model/treeitemroot.h"
#include "model/usernotifier.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace {

std::wstring Export(CTreeItemRoot& root)
{
    std::wostringstream out;
    CCsvLoader(&root).Export(out);
    return out.str();
}

void LoadPlainText(CTreeItemRoot& root, const std::wstring& text)
{
    CRowSplitter splitter(true);
    size_t start = 0;
    while (start < text.size()) {
        size_t lf = text.find(L'\n', start);
        if (lf == std::wstring::npos)
            lf = text.size();
        splitter.AddLine(text.data() + start, lf - start);
        start = lf + 1;
    }
    CCsvLoader(&root).Load(
        CCsvLoader::Rows(splitter.Buffer().begin(), splitter.Buffer().begin() + splitter.Count()));
}

std::string ScratchPath()
{
    return (QDir::tempPath() + QStringLiteral("/fuzz_csvloader_%1.in").arg(getpid())).toStdString();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The reader's warning boxes have nobody to show them to here.
    CUserNotifier::Install([](const QString&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    static const std::string path = ScratchPath();
    {
        QFile file(QString::fromStdString(path));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            std::abort();
        file.write(reinterpret_cast<const char*>(data + 1), static_cast<qint64>(size - 1));
    }

    CTreeItemRoot first;
    CCsvLoader(&first).Load(path, (data[0] & 1) == 0);

    CTreeItemRoot second;
    LoadPlainText(second, Export(first));
    const std::wstring written = Export(second);
    CTreeItemRoot third;
    LoadPlainText(third, written);
    if (Export(third) != written)
        std::abort();
    return 0;
}
