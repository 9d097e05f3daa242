#pragma once

#include <QString>

class CTreeItemRoot;
class QSaveFile;

// Saves the tree over a configuration file so that the file is at every moment
// either its old self or the complete new text: the text goes into a
// temporary file in the target's folder, which replaces the target only once
// it is whole and on disk. A symlinked target is written through, the link
// stays. A target marked read-only is refused, also for a user whose rights
// would let the rename pass.
class CConfigWriter
{
public:
    // The numbers the save command returns: 0 done, 1 the writer failed (a
    // file that can't be made or written), 2 the scrambled form couldn't be put
    // in place.
    enum Result
    {
        Saved = 0,
        WriteFailed = 1,
        ScrambleFailed = 2,
    };

    // plain true writes the .csv form, false the scrambled .cfg form.
    static Result Save(CTreeItemRoot& root, const QString& path, bool plain);

    // Opens file for writing, refusing a read-only target.
    static bool Open(QSaveFile& file);
};
