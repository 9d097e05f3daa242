#pragma once

#include <QString>

#include <functional>

class CTreeItemRoot;
class QIODevice;

// Writes configuration files so that a file is at every moment either its old
// self or the complete new text, whatever stops the program: the text goes
// into a file of its own in the target's folder (unnamed where the file system
// allows), is put on disk, and then takes the target's place in one rename,
// with the old file's owner, group and mode as far as the saver may set them. A
// symlinked target is written through and the link stays; links in a loop are
// refused. A target marked read-only is refused, also for a user whose rights
// would let the rename pass.
class CConfigWriter
{
public:
    // The numbers the save command returns: 0 done, 1 the text couldn't be
    // written, 2 the written text couldn't take the target's place.
    enum Result
    {
        Saved = 0,
        NotWritten = 1,
        NotPlaced = 2,
    };

    // plain true writes the .csv form, false the scrambled .cfg form.
    static Result Save(CTreeItemRoot& root, const QString& path, bool plain);

    // Replaces the file at path with what fill writes to the device; fill
    // answers false when it couldn't write everything.
    static Result Replace(const QString& path, const std::function<bool(QIODevice&)>& fill);

    // The name a save in progress gives the new text just before the rename;
    // a save killed between the two leaves it, and the next save removes it.
    static QString PendingName(const QString& target);
};
