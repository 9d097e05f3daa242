#include "app/qttranslation.h"

#include "app/logging.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

bool installQtTranslation(QCoreApplication& app)
{
    const QString folder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    auto* translator = new QTranslator(&app);
    // Russian whatever the user's locale: the whole interface is Russian.
    if (!translator->load(QLocale(QLocale::Russian, QLocale::Russia), "qtbase", "_", folder)) {
        delete translator;
        VLOG_WARNING().noquote() << QString("Русские тексты Qt не найдены в %1").arg(folder);
        return false;
    }
    return QCoreApplication::installTranslator(translator);
}
