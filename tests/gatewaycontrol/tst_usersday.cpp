#include "app/mainwindow.h"
#include "config/csvimporter.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelmonitoring.h"

#include <QAction>
#include <QLineEdit>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

// One working day of an engineer, end to end with the bundled gateway: open
// the plant, start the gateway, get connected, add a tag on the running
// gateway, watch it live, stop the gateway and save.
class UsersDayTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    static QTreeWidgetItem* row(MainWindow& w, const QString& text)
    {
        const auto rows =
            w.findChild<QTreeWidget*>("treeWidget")->findItems(text, Qt::MatchExactly | Qt::MatchRecursive);
        return rows.isEmpty() ? nullptr : rows.first();
    }

    static QString cell(MainWindow& w, int r, int c)
    {
        TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
        return model->data(model->index(r, c)).toString();
    }

private slots:
    void initTestCase()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    }

    void openStartAddWatchStopSave()
    {
        const QString plant = m_dir.filePath("plant.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_EXAMPLES) + "/plant.cfg", plant));
        ModalWatcher watcher;
        MainWindow w;
        w.show();

        watcher.answerFile(plant);
        w.findChild<QAction*>("open_action")->trigger();
        const uint tagsBefore = MainWindowProbe::root(w).GetItemsCount(itTag);
        QVERIFY(tagsBefore >= 300);

        const quint16 port = GatewayProcess::freePort();
        watcher.answer([port](QWidget* dialog) {
            dialog->findChild<QSpinBox*>("portBox")->setValue(port);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        w.findChild<QAction*>("run_server_action")->trigger();
        QVERIFY(MainWindowProbe::connected(w));

        // A new tag in the boilers' analog group, on the running gateway too.
        QTreeWidgetItem* group = row(w, "Аналоговые");
        QVERIFY(group);
        w.findChild<QTreeWidget*>("treeWidget")->setCurrentItem(group);
        watcher.answer([](QWidget* dialog) {
            dialog->findChild<QLineEdit*>("nameEdit")->setText("Новый_тег");
            QMetaObject::invokeMethod(dialog, "accept");
        });
        w.findChild<QAction*>("add_tag_action")->trigger();
        QTRY_COMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), tagsBefore + 1);

        // Watch the group: every tag arrives with good quality, the new one too,
        // which it only can if the running gateway has its node.
        w.findChild<QAction*>("monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(w));
        const int rows = MainWindowProbe::monitoringModel(w)->rowCount();
        QVERIFY(rows >= 8);
        for (int r = 0; r < rows; ++r)
            QTRY_COMPARE_WITH_TIMEOUT(cell(w, r, 2), QString("Good"), 10000);
        w.findChild<QAction*>("monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w));

        watcher.answer(QMessageBox::Ok);
        w.findChild<QAction*>("stop_server_action")->trigger();
        QCOMPARE(watcher.seen().last().text, QString("Сервер успешно остановлен!"));

        const QString saved = m_dir.filePath("plant-evening.cfg");
        watcher.answerFile(saved);
        w.findChild<QAction*>("save_action")->trigger();
        QVERIFY(!MainWindowProbe::dirty(w));
        CTreeItemRoot reread;
        QVERIFY(CCsvLoader(&reread).Load(saved.toStdString(), false));
        QCOMPARE(reread.GetItemsCount(itTag), tagsBefore + 1);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(UsersDayTest)
#include "tst_usersday.moc"
