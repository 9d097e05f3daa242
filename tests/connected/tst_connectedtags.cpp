#include "app/mainwindow.h"
#include "gatewayprocess.h"
#include "model/dataginfo.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelvariable.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QTableView>
#include <QTreeWidget>
#include <QtTest>

namespace {

UA_Logger g_quiet = {nullptr, nullptr, nullptr};

const QString kGroup = "Channel_0.Device_0.Group_0";

// The tags of the group as a session of its own sees them on the gateway at
// `url`: "name type", sorted.
QStringList gatewayTags(const QString& url)
{
    UA_ClientConfig config{};
    config.logging = &g_quiet;
    UA_ClientConfig_setDefault(&config);
    UA_Client* client = UA_Client_newWithConfig(&config);
    QStringList tags;
    if (UA_Client_connect(client, url.toUtf8().constData()) != UA_STATUSCODE_GOOD)
        tags << "no session";
    const auto collect = [](UA_NodeId child, UA_Boolean inverse, UA_NodeId, void* list) -> UA_StatusCode {
        if (!inverse && child.namespaceIndex == 2)
            *static_cast<QList<QByteArray>*>(list)
                << QByteArray(reinterpret_cast<const char*>(child.identifier.string.data),
                              int(child.identifier.string.length));
        return UA_STATUSCODE_GOOD;
    };
    QList<QByteArray> ids;
    const QByteArray group = kGroup.toUtf8();
    UA_Client_forEachChildNodeCall(client, UA_NODEID_STRING(2, const_cast<char*>(group.data())), collect,
                                   &ids);
    for (const QByteArray& id : ids) {
        UA_NodeId type = UA_NODEID_NULL;
        UA_Client_readDataTypeAttribute(client, UA_NODEID_STRING(2, const_cast<char*>(id.data())), &type);
        const UA_DataType* t = UA_findDataType(&type);
        tags << QString::fromUtf8(id).section('.', -1) + " " + (t ? t->typeName : "?");
    }
    UA_Client_delete(client);
    tags.sort();
    return tags;
}

} // namespace

// Tag commands while connected: each add, edit and delete must reach the
// gateway, and an added series must wrap every tag in a stop and a start of
// the exchange.
class ConnectedTagsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void tagCommandsReachTheGateway()
    {
        const QString config = m_dir.filePath("tags.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config));
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(config)), qPrintable(gateway.output()));
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        watcher.answerFile(config);
        w.on_open_action_triggered();
        watcher.answerConnect(gateway.url());
        w.findChild<QAction*>("action")->trigger();
        QVERIFY(MainWindowProbe::connected(w) && MainWindowProbe::client(w));
        CItem* group = MainWindowProbe::groups(w).at(kGroup);
        auto* tree = w.findChild<QTreeWidget*>("treeWidget");
        tree->setCurrentItem(tree->topLevelItem(0)->child(0)->child(0)->child(0));
        const int mark = gateway.output().size();

        // Three holding registers from one dialog; a series that hangs is
        // closed here after a minute so that the failure shows.
        watcher.answer([](QWidget* d) {
            d->findChild<QComboBox*>("regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
            d->findChild<QSpinBox*>("addrBox")->setValue(100);
            d->findChild<QComboBox*>("valTypeBox")->setCurrentText("Цел16");
            d->findChild<QSpinBox*>("spinBox_5")->setValue(3);
            qobject_cast<QDialog*>(d)->accept();
        });
        bool hung = false;
        QTimer::singleShot(60000, &w, [&] {
            hung = true;
            emit w.signalCloseProgressBar(0);
        });
        w.on_add_tag_action_triggered();
        QVERIFY(!hung);

        QString expected;
        for (int i = 0; i < 3; ++i)
            expected += QString("stopExchange: emul\n.*addNode: %1;4;Tag_%2;3;%3;2;.*startExchange: emul\n.*")
                            .arg(kGroup)
                            .arg(3 + i)
                            .arg(100 + i);
        const QString added = gateway.output().mid(mark);
        QVERIFY2(added.contains(QRegularExpression(expected, QRegularExpression::DotMatchesEverythingOption)),
                 qPrintable(added));
        QCOMPARE(added.count("Вызов метода addNode"), 3);
        QCOMPARE(gatewayTags(gateway.url()), QStringList({"Tag_0 Float", "Tag_1 UInt16", "Tag_2 Boolean",
                                                          "Tag_3 UInt16", "Tag_4 UInt16", "Tag_5 UInt16"}));
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 6);

        // Tag_4 renamed and made a double: the gateway's node follows.
        auto* table = w.findChild<QTableView*>("tableView");
        auto selectRows = [&](const QList<int>& rows) {
            table->selectionModel()->clearSelection();
            for (int row : rows)
                table->selectionModel()->select(MainWindowProbe::tagModel(w)->index(row, 0),
                                                QItemSelectionModel::Select | QItemSelectionModel::Rows);
        };
        selectRows({4});
        watcher.answer([](QWidget* d) {
            d->findChild<QLineEdit*>("nameEdit")->setText("Уровень");
            d->findChild<QComboBox*>("valTypeBox")->setCurrentText("Вещ64");
            qobject_cast<QDialog*>(d)->accept();
        });
        w.tag_edit_action_triggered();
        QVERIFY(gateway.output().contains(QString("Вызов метода editNode: %1.Tag_4;4;Уровень;").arg(kGroup)));
        QVERIFY(gatewayTags(gateway.url()).contains("Уровень Double"));
        QVERIFY(group->FindChildByName("Уровень") && !group->FindChildByName("Tag_4"));

        // Two rows apart go, here and on the gateway.
        selectRows({1, 5});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        const QStringList left{"Tag_0 Float", "Tag_2 Boolean", "Tag_3 UInt16", "Tag_5 UInt16"};
        QCOMPARE(gatewayTags(gateway.url()), left);
        QCOMPARE(group->size(), 4u);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 4);
        QVERIFY(!gateway.output().mid(mark).contains(": Bad"));

        // Saved and started again, a gateway has the same tags.
        const QString saved = m_dir.filePath("saved.cfg");
        watcher.answerFile(saved);
        w.on_save_action_triggered();
        GatewayProcess again;
        QVERIFY2(again.start(GatewayProcess::Options(saved)), qPrintable(again.output()));
        QCOMPARE(gatewayTags(again.url()), left);
        QCOMPARE(watcher.unexpectedCount(), 0);
        QCOMPARE(watcher.pending(), 0);
    }
};

QTEST_MAIN(ConnectedTagsTest)
#include "tst_connectedtags.moc"
