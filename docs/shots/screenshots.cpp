// Renders the pictures of the README from the real windows:
//   cmake --build build --target velmora_screenshots
//   QT_QPA_PLATFORM=offscreen build/bin/velmora_screenshots docs
#include "app/mainwindow.h"
#include "app/qttranslation.h"
#include "dialogs/runpreparedialog.h"

#include <QApplication>
#include <QDir>
#include <QTabWidget>
#include <QTreeWidget>

#include <cstdio>

namespace {

QTreeWidgetItem* findRow(QTreeWidget* tree, const QString& text)
{
    const auto rows = tree->findItems(text, Qt::MatchExactly | Qt::MatchRecursive);
    return rows.isEmpty() ? nullptr : rows.first();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    installQtTranslation(app);
    if (argc != 2) {
        std::fprintf(stderr, "usage: velmora_screenshots <output folder>\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));

    // The size the README shows them at.
    MainWindow window;
    window.resize(1280, 800);
    window.show();
    window.grab().save(out.filePath("main-window.png"));

    window.openCSVFile(QString(VELMORA_EXAMPLES) + "/plant.cfg");
    auto* tree = window.findChild<QTreeWidget*>("treeWidget");
    for (const char* name : {"Котельная_RS485", "Котёл_1", "Насосная_станция", "ПЛК_насосов"})
        if (QTreeWidgetItem* row = findRow(tree, name))
            row->setExpanded(true);
    QTreeWidgetItem* group = findRow(tree, "Аналоговые");
    if (!group) {
        std::fprintf(stderr, "velmora_screenshots: the example has no group to show\n");
        return 1;
    }
    tree->setCurrentItem(group);
    window.findChild<QTabWidget*>("tabWidget")->setCurrentIndex(1);
    app.processEvents();
    window.grab().save(out.filePath("tag-table.png"));

    RunPrepareDialog start(&window);
    start.Init("/home/engineer/Котельная/plant.cfg", "", "", "");
    start.show();
    app.processEvents();
    start.grab().save(out.filePath("start-dialog.png"));
    return 0;
}
