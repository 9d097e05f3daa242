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
#include <QPushButton>
#include <QSpinBox>
#include <QTableView>
#include <QTreeWidget>
#include <QtTest>

namespace {

UA_Logger g_quiet = {nullptr, nullptr, nullptr};

// Looks at the gateway's address space on a session of its own.
class Look
{
public:
    Look()
    {
        UA_ClientConfig config{};
        config.logging = &g_quiet;
        UA_ClientConfig_setDefault(&config);
        m_client = UA_Client_newWithConfig(&config);
    }
    ~Look() { UA_Client_delete(m_client); }
    Look(const Look&) = delete;
    Look& operator=(const Look&) = delete;

    bool connect(const QString& url)
    {
        return UA_Client_connect(m_client, url.toUtf8().constData()) == UA_STATUSCODE_GOOD;
    }

    // The variables under a group, sorted.
    QStringList tags(const QString& group)
    {
        const QByteArray id = group.toUtf8();
        UA_BrowseRequest request;
        UA_BrowseRequest_init(&request);
        UA_BrowseDescription description;
        UA_BrowseDescription_init(&description);
        description.nodeId = UA_NODEID_STRING(2, const_cast<char*>(id.constData()));
        description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
        description.includeSubtypes = true;
        description.nodeClassMask = UA_NODECLASS_VARIABLE;
        description.resultMask = UA_BROWSERESULTMASK_BROWSENAME;
        request.nodesToBrowse = &description;
        request.nodesToBrowseSize = 1;
        UA_BrowseResponse response = UA_Client_Service_browse(m_client, request);
        QStringList names;
        for (size_t r = 0; r < response.resultsSize; ++r)
            for (size_t i = 0; i < response.results[r].referencesSize; ++i) {
                const UA_String& name = response.results[r].references[i].browseName.name;
                names << QString::fromUtf8(reinterpret_cast<const char*>(name.data), int(name.length));
            }
        UA_BrowseResponse_clear(&response);
        names.sort();
        return names;
    }

    // The numeric id of a variable's data type; 0 when it can't be read.
    quint32 dataType(const QString& fullName)
    {
        const QByteArray id = fullName.toUtf8();
        UA_NodeId type = UA_NODEID_NULL;
        UA_Client_readDataTypeAttribute(m_client, UA_NODEID_STRING(2, const_cast<char*>(id.constData())),
                                        &type);
        return type.identifierType == UA_NODEIDTYPE_NUMERIC ? type.identifier.numeric : 0;
    }

private:
    UA_Client* m_client = nullptr;
};

const QString kGroup = "Channel_0.Device_0.Group_0";

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
        watcher.answer([&gateway](QWidget* dialog) {
            dialog->findChild<QLineEdit*>("le_device")->setText(gateway.url());
            for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
                dialog->findChild<QPushButton*>(name)->click();
        });
        w.findChild<QAction*>("action")->trigger();
        QVERIFY(MainWindowProbe::connected(w) && MainWindowProbe::client(w));
        Look look;
        QVERIFY(look.connect(gateway.url()));

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

        const QString added = gateway.output().mid(mark);
        int at = 0;
        for (int i = 0; i < 3; ++i) {
            const QString tag =
                QString("Вызов метода addNode: %1;4;Tag_%2;3;%3;2;").arg(kGroup).arg(3 + i).arg(100 + i);
            for (const QString& step : {QString("Вызов метода stopExchange: emul"), tag,
                                        QString("Вызов метода startExchange: emul")}) {
                const int next = added.indexOf(step, at);
                QVERIFY2(next >= at, qPrintable(step + "\n" + added));
                at = next + 1;
            }
        }
        QCOMPARE(added.count("Вызов метода addNode"), 3);
        QVERIFY2(!added.contains(": Bad"), qPrintable(added));
        const QStringList six{"Tag_0", "Tag_1", "Tag_2", "Tag_3", "Tag_4", "Tag_5"};
        QCOMPARE(look.tags(kGroup), six);
        QCOMPARE(look.dataType(kGroup + ".Tag_5"), quint32(UA_NS0ID_UINT16));
        QCOMPARE(group->size(), 6u);
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
        QCOMPARE(MainWindowProbe::tagModel(w)->index(4, 0).data().toString(), QString("Tag_4"));
        watcher.answer([](QWidget* d) {
            d->findChild<QLineEdit*>("nameEdit")->setText("Уровень");
            d->findChild<QComboBox*>("valTypeBox")->setCurrentText("Вещ64");
            qobject_cast<QDialog*>(d)->accept();
        });
        w.tag_edit_action_triggered();
        QVERIFY(gateway.output().contains(QString("Вызов метода editNode: %1.Tag_4;4;Уровень;").arg(kGroup)));
        QCOMPARE(look.tags(kGroup), QStringList({"Tag_0", "Tag_1", "Tag_2", "Tag_3", "Tag_5", "Уровень"}));
        QCOMPARE(look.dataType(kGroup + ".Уровень"), quint32(UA_NS0ID_DOUBLE));
        QVERIFY(group->FindChildByName("Уровень") && !group->FindChildByName("Tag_4"));

        // Two rows apart go, here and on the gateway.
        selectRows({1, 5});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        const QStringList left{"Tag_0", "Tag_2", "Tag_3", "Tag_5"};
        QCOMPARE(look.tags(kGroup), left);
        QCOMPARE(group->size(), 4u);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 4);
        QVERIFY(!gateway.output().mid(mark).contains(": Bad"));

        // Saved and started again, a gateway has the same tags.
        const QString saved = m_dir.filePath("saved.cfg");
        watcher.answerFile(saved);
        w.on_save_action_triggered();
        GatewayProcess again;
        QVERIFY2(again.start(GatewayProcess::Options(saved)), qPrintable(again.output()));
        Look restarted;
        QVERIFY(restarted.connect(again.url()));
        QCOMPARE(restarted.tags(kGroup), left);
        QCOMPARE(restarted.dataType(kGroup + ".Tag_5"), quint32(UA_NS0ID_UINT16));
        QCOMPARE(watcher.unexpectedCount(), 0);
        QCOMPARE(watcher.pending(), 0);
    }
};

QTEST_MAIN(ConnectedTagsTest)
#include "tst_connectedtags.moc"
