#include "config/configwriter.h"

#include "config/csvimporter.h"
#include "config/utf8streambuf.h"

#include <QFileInfo>
#include <QSaveFile>

#include <ostream>

CConfigWriter::Result CConfigWriter::Save(CTreeItemRoot& root, const QString& path, bool plain)
{
    QSaveFile file(path);
    if (!Open(file))
        return WriteFailed;
    bool written;
    {
        CUtf8StreamBuf buffer(&file, !plain);
        std::wostream out(&buffer);
        written = CCsvLoader(&root).Export(out);
        written = buffer.finish() && written && out.good();
    }
    // An unfinished file is dropped with the QSaveFile; the target isn't touched.
    if (!written)
        return WriteFailed;
    if (!file.commit())
        return plain ? WriteFailed : ScrambleFailed;
    return Saved;
}

bool CConfigWriter::Open(QSaveFile& file)
{
    // The link's target is what gets replaced, and its rights are what count.
    const QFileInfo target(QFileInfo(file.fileName()).canonicalFilePath());
    if (target.exists() &&
        (!target.isWritable() || !(target.permissions() & (QFileDevice::WriteOwner | QFileDevice::WriteGroup |
                                                           QFileDevice::WriteOther))))
        return false;
    // Unbuffered: a short write (a full disk) shows in write's answer at once,
    // where a buffered one could end in a short file that commit accepts.
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}
