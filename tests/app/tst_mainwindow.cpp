#include "app/logging.h"
#include "app/mainwindow.h"
#include "app/progressbar.h"
#include "app/qttranslation.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "tests/common/testfiles.h"

#include <QtTest>
#include <QtWidgets>

// The frame of the program: the real program's start and log, the state table
// of the commands, the closing question and the busy dialog.
class MainWindowTest : public QObject
{
    Q_OBJECT

    static QString logPath() { return logFolderPath() + "VelmoraGui.log"; }

    static QStringList logLines()
    {
        return QString::fromUtf8(readFile(logPath())).split('\n', Qt::SkipEmptyParts);
    }

    // The actions that setEnabledToolbar governs, in table order; all are on for a group.
    static QStringList governed()
    {
        return {"open_action",       "action_export_conf", "action_import_conf",
                "copy_action",       "paste_action",       "action",
                "edit_action",       "save_action",        "add_channel_action",
                "add_device_action", "add_group_action",   "add_tag_action",
                "delete_action",     "monitoring_action"};
    }

    static QStringList enabledOf(MainWindow& w)
    {
        QStringList on;
        for (const QString& n : governed())
            if (requireChild<QAction>(&w, qPrintable(n))->isEnabled())
                on << n;
        return on;
    }

private slots:
    void initTestCase() { QVERIFY(installQtTranslation(*qApp)); }

    void startsAndLogs()
    {
        // Two starts of the real program append a line each.
        QFile::remove(logPath());
        const QRegularExpression started(
            R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Info: Приложение запущено$)");
        for (int run = 1; run <= 2; ++run) {
            QProcess p;
            p.start(QString(VELMORA_BIN_DIR) + "/velmora", {});
            QVERIFY(p.waitForStarted());
            QTRY_COMPARE_WITH_TIMEOUT(logLines().filter(started).size(), run, 20000);
            p.terminate();
            QVERIFY(p.waitForFinished(10000));
        }

        // The handler writes category and text; a small file is not rotated.
        QFile::remove(logPath());
        openLogFile();
        QtMessageHandler old = qInstallMessageHandler(messageHandler);
        VLOG_WARNING().noquote() << "Не удалось сохранить файл конфигурации";
        VLOG_INFO().noquote() << "строка 2";
        qInstallMessageHandler(old);
        rotateLogFile();
        m_logFile->close();
        const QStringList lines = logLines();
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines[0].endsWith(" Warning: Не удалось сохранить файл конфигурации"));
        QVERIFY(lines[1].endsWith(" Info: строка 2"));
        QCOMPARE(QDir(logFolderPath()).entryList(QDir::Files), QStringList{"VelmoraGui.log"});

        // At start only the neutral commands; after a channel row the root row
        // keeps save enabled, though nothing was opened or saved.
        MainWindow w;
        QCOMPARE(enabledOf(w), QStringList({"open_action", "action_export_conf", "action_import_conf",
                                            "action", "add_channel_action"}));
        auto* tabs = requireChild<QTabWidget>(&w, "tabWidget");
        QVERIFY(!tabs->isTabEnabled(1) && !tabs->isTabEnabled(2));
        w.setEnabledToolbar(TreeItemChannel);
        w.setEnabledToolbar(TreeItemRoot);
        QVERIFY(requireChild<QAction>(&w, "save_action")->isEnabled());
    }

    void stateTableInEveryMode_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("monitoring");
        QTest::addColumn<QStringList>("enabled");

        const QStringList group = governed();
        // A channel can't be edited from the toolbar, nor take a group or a tag.
        QStringList channel = group;
        for (const char* off : {"edit_action", "add_group_action", "add_tag_action", "monitoring_action"})
            channel.removeOne(off);
        QTest::newRow("channel") << int(TreeItemChannel) << false << channel;
        QStringList device = group;
        device.removeOne("add_tag_action");
        device.removeOne("monitoring_action");
        QTest::newRow("device") << int(TreeItemDevice) << false << device;
        QTest::newRow("group") << int(TreeItemGroup) << false << group;
        // The flag has already fallen when this mode is used; it is exempt anyway.
        QTest::newRow("monitoring stopped, flag still set") << int(ToolbarMonitoringOff) << true << group;
        QTest::newRow("monitoring started")
            << int(ToolbarMonitoringOn) << true << QStringList{"monitoring_action"};
        QTest::newRow("channel while monitoring")
            << int(TreeItemChannel) << true << QStringList{"monitoring_action"};
    }

    void stateTableInEveryMode()
    {
        QFETCH(int, mode);
        QFETCH(bool, monitoring);
        QFETCH(QStringList, enabled);
        MainWindow w;
        MainWindowProbe::configOpen(w) = true;
        MainWindowProbe::monitoring(w) = monitoring;
        w.setEnabledToolbar(mode);
        const QStringList actual = enabledOf(w);
        // The flag alone, with no subscription behind it: nothing to stop at the end.
        MainWindowProbe::monitoring(w) = false;
        QCOMPARE(actual, enabled);
    }

    void closeWithUnsavedChangesAsks()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        MainWindowProbe::dirty(w) = true;
        watcher.answer(QMessageBox::Cancel);
        QCloseEvent cancelled;
        w.closeEvent(&cancelled);
        QVERIFY(!cancelled.isAccepted());
        QCOMPARE(watcher.seen().last().text, QString("Хотите сохранить изменения настроек?"));

        watcher.answer([](QWidget* box) {
            QCOMPARE(qobject_cast<QMessageBox*>(box)->button(QMessageBox::No)->text(), QString("Нет"));
            ModalWatcher::pressButton(box, QMessageBox::No);
        });
        QCloseEvent declined;
        w.closeEvent(&declined);
        QVERIFY(declined.isAccepted());

        // Qt's own dialogs speak Russian as well: saving over a file that is
        // there asks first, with the buttons of a standard question.
        QTemporaryDir dir;
        const QString taken = writeFile(dir.filePath("taken.cfg"), "x");
        QStringList texts;
        watcher.answer(QMessageBox::Ok);
        watcher.answer([&](QWidget* d) {
            for (const char* name : {"buttonBox", "fileNameLabel"})
                for (QWidget* part : QList<QWidget*>{requireChild<QWidget>(d, name)} +
                                         requireChild<QWidget>(d, name)->findChildren<QWidget*>())
                    if (const QString text = part->property("text").toString(); !text.isEmpty())
                        texts << text;
            ModalWatcher::chooseFile(d, taken);
        });
        watcher.answer([&](QWidget* w) {
            auto* box = qobject_cast<QMessageBox*>(w);
            texts << box->text() << box->button(QMessageBox::Yes)->text()
                  << box->button(QMessageBox::No)->text();
            ModalWatcher::pressButton(box, QMessageBox::Yes);
        });
        QCloseEvent saved;
        w.closeEvent(&saved);
        QVERIFY(saved.isAccepted() && !MainWindowProbe::dirty(w));
        QCOMPARE(texts, (QStringList{"&Сохранить", "Отмена", "&Имя файла:",
                                     "taken.cfg уже существует.\nЗаменить его?", "&Да", "&Нет"}));
    }

    void busyDialogWaitsForItsWorker()
    {
        // The user can't close it while the worker runs. Codes 1 to 13 warn
        // first, with the dialog still open behind the box; the others say nothing.
        ModalWatcher watcher;
        QStringList texts;
        for (int code = -1; code <= 14; ++code) {
            ProgressBar dialog;
            bool closed = true, openBehindBox = false;
            if (code >= 1 && code <= 13)
                watcher.answer([&](QWidget* box) {
                    openBehindBox = dialog.isVisible();
                    texts << qobject_cast<QMessageBox*>(box)->text();
                    ModalWatcher::pressButton(box, QMessageBox::Ok);
                });
            QTimer::singleShot(0, &dialog, [&] {
                closed = dialog.close() || !dialog.isVisible();
                dialog.slotCloseProgressBar(code);
            });
            dialog.exec();
            QVERIFY2(!closed && dialog.resultCode() == code, qPrintable(QString::number(code)));
            QCOMPARE(openBehindBox, code >= 1 && code <= 13);
        }
        QCOMPARE(watcher.seen().size(), 13);
        QCOMPARE(watcher.seen().last().title, QString("Внимание"));
        // Both save failures read the same; every other code has its own words.
        QCOMPARE(texts[11], texts[12]);
        QCOMPARE(QSet<QString>(texts.begin(), texts.end()).size(), 12);
        QCOMPARE(texts[7],
                 QString("Ошибка отключение подписки выбранных тегов, подробности смотрите с логе."));
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
