#include "app/mainwindow.h"
#include "gatewayprocess.h"
#include "model/cchannelinfo.h"
#include "model/deviceinfo.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QMutex>
#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QtTest>

namespace {

QMutex g_logMutex;
QStringList g_log;

void captureLog(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    QMutexLocker lock(&g_logMutex);
    // The offscreen platform's own complaints are no warnings of the program.
    if (type == QtWarningMsg && !text.contains("propagateSizeHints"))
        g_log << text;
}

QStringList takeWarnings()
{
    QMutexLocker lock(&g_logMutex);
    return std::exchange(g_log, {});
}

UA_Logger g_quiet = {nullptr, nullptr, nullptr};

// A client of its own beside the program's: it changes the gateway behind the
// program's back and looks at the gateway's address space independently of
// the code under test.
class SecondClient
{
public:
    SecondClient()
    {
        UA_ClientConfig config{};
        config.logging = &g_quiet;
        UA_ClientConfig_setDefault(&config);
        m_client = UA_Client_newWithConfig(&config);
    }
    ~SecondClient()
    {
        UA_Client_disconnect(m_client);
        UA_Client_delete(m_client);
    }
    SecondClient(const SecondClient&) = delete;
    SecondClient& operator=(const SecondClient&) = delete;

    bool connect(const QString& url)
    {
        return UA_Client_connect(m_client, url.toUtf8().constData()) == UA_STATUSCODE_GOOD;
    }

    QString call(const char* method, const QString& argument)
    {
        const QByteArray object = QString("Каналы").toUtf8();
        const QByteArray id = object + "." + method;
        const QByteArray text = argument.toUtf8();
        UA_Variant input;
        UA_String value = {size_t(text.size()), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
        UA_Variant_setScalar(&input, &value, &UA_TYPES[UA_TYPES_STRING]);
        size_t outputSize = 0;
        UA_Variant* output = nullptr;
        const UA_StatusCode rc =
            UA_Client_call(m_client, nodeId(object), nodeId(id), 1, &input, &outputSize, &output);
        UA_Array_delete(output, outputSize, &UA_TYPES[UA_TYPES_VARIANT]);
        return UA_StatusCode_name(rc);
    }

    bool exists(const QString& fullName)
    {
        const QByteArray id = fullName.toUtf8();
        UA_NodeClass nodeClass = UA_NODECLASS_UNSPECIFIED;
        return UA_Client_readNodeClassAttribute(m_client, nodeId(id), &nodeClass) == UA_STATUSCODE_GOOD;
    }

    // Names of the children of a node, as the gateway's hierarchy shows them.
    QStringList children(const QString& fullName)
    {
        const QByteArray id = fullName.toUtf8();
        UA_BrowseRequest request;
        UA_BrowseRequest_init(&request);
        UA_BrowseDescription description;
        UA_BrowseDescription_init(&description);
        description.nodeId = nodeId(id);
        description.browseDirection = UA_BROWSEDIRECTION_FORWARD;
        description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
        description.includeSubtypes = true;
        description.nodeClassMask = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE; // not the methods
        description.resultMask = UA_BROWSERESULTMASK_BROWSENAME;
        request.nodesToBrowse = &description;
        request.nodesToBrowseSize = 1;
        UA_BrowseResponse response = UA_Client_Service_browse(m_client, request);
        QStringList names;
        for (size_t r = 0; r < response.resultsSize; ++r) {
            for (size_t i = 0; i < response.results[r].referencesSize; ++i) {
                const UA_ReferenceDescription& ref = response.results[r].references[i];
                if (ref.nodeId.nodeId.namespaceIndex == 2)
                    names << QString::fromUtf8(reinterpret_cast<const char*>(ref.browseName.name.data),
                                               int(ref.browseName.name.length));
            }
        }
        UA_BrowseResponse_clear(&response);
        names.sort();
        return names;
    }

    double samplingInterval(const QString& fullName)
    {
        const QByteArray id = fullName.toUtf8();
        double interval = -1;
        UA_Client_readMinimumSamplingIntervalAttribute(m_client, nodeId(id), &interval);
        return interval;
    }

private:
    static UA_NodeId nodeId(const QByteArray& id)
    {
        return UA_NODEID_STRING(2, const_cast<char*>(id.constData()));
    }

    UA_Client* m_client = nullptr;
};

QTreeWidget* tree(MainWindow& w)
{
    return w.findChild<QTreeWidget*>("treeWidget");
}

void select(MainWindow& w, QTreeWidgetItem* row)
{
    tree(w)->clearSelection();
    row->setSelected(true);
}

QTreeWidgetItem* rowOf(MainWindow& w, CItem* node)
{
    for (const auto& entry : MainWindowProbe::treeItems(w))
        if (entry.second == node)
            return entry.first;
    return nullptr;
}

template <typename T> T* child(QWidget* w, const char* name)
{
    T* found = w->findChild<T*>(name);
    if (!found)
        qFatal("no widget %s", name);
    return found;
}

// Queues a handler that edits the next setup dialog and accepts it.
void fill(ModalWatcher& watcher, std::function<void(QWidget*)> edit)
{
    watcher.answer([edit](QWidget* w) {
        edit(w);
        qobject_cast<QDialog*>(w)->accept();
    });
}

void rename(ModalWatcher& watcher, const QString& name)
{
    fill(watcher, [name](QWidget* d) { child<QLineEdit>(d, "nameEdit")->setText(name); });
}

// The lines the gateway printed since the mark, which moves to the end.
QString printedSince(GatewayProcess& gateway, int& mark)
{
    const QString all = gateway.output();
    const QString recent = all.mid(mark);
    mark = all.size();
    return recent;
}

} // namespace

// The item commands while the program is connected to the gateway: every
// change has to show up in the gateway's address space, and every refusal of
// the gateway has to leave the local tree in the state that command promises.
class ConnectedItemsTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    // Opens a fresh copy of the example in the window and connects it through
    // the find-server dialog to a gateway running that copy.
    void openAndConnect(MainWindow& w, ModalWatcher& watcher, GatewayProcess& gateway)
    {
        const QString config = m_dir.filePath(QString("example-%1.cfg").arg(QTest::currentTestFunction()));
        QFile::remove(config);
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config));
        QVERIFY2(gateway.start(GatewayProcess::Options(config)), qPrintable(gateway.output()));
        watcher.answerFile(config);
        w.on_open_action_triggered();
        watcher.answer([&gateway](QWidget* dialog) {
            dialog->findChild<QLineEdit*>("le_device")->setText(gateway.url());
            for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
                dialog->findChild<QPushButton*>(name)->click();
        });
        w.findChild<QAction*>("action")->trigger();
        QVERIFY(MainWindowProbe::connected(w) && MainWindowProbe::client(w));
        takeWarnings();
    }

private slots:
    void initTestCase() { qInstallMessageHandler(captureLog); }

    void changesReachTheGateway()
    {
        GatewayProcess gateway;
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        openAndConnect(w, watcher, gateway);
        if (QTest::currentTestFailed())
            return;
        SecondClient look;
        QVERIFY(look.connect(gateway.url()));
        CTreeItemRoot& root = MainWindowProbe::root(w);
        CItem* channel0 = root.FindChildByName("Channel_0");
        CItem* device0 = channel0->FindChildByName("Device_0");
        int mark = gateway.output().size();

        // A serial and a TCP channel, the second with a name that is not ASCII.
        select(w, tree(w)->topLevelItem(0));
        fill(watcher, [](QWidget* d) {
            child<QSpinBox>(d, "comNoBox")->setValue(5);
            child<QComboBox>(d, "baudRateBox")->setCurrentText("19200");
        });
        w.on_add_channel_action_triggered();
        QVERIFY(printedSince(gateway, mark)
                    .contains("Вызов метода addNode: Каналы;1;Channel_2;0;500;3;0;0;5;19200;8;1;0;0;0;0\n"));
        fill(watcher, [](QWidget* d) {
            child<QComboBox>(d, "typeBox")->setCurrentIndex(1);
            child<QLineEdit>(d, "nameEdit")->setText("Сеть");
            child<QLineEdit>(d, "ipEdit")->setText("127.0.0.2");
            child<QSpinBox>(d, "tcpPortBox")->setValue(1502);
        });
        w.on_add_channel_action_triggered();
        QVERIFY(printedSince(gateway, mark)
                    .contains(QString("Вызов метода addNode: Каналы;1;Сеть;1;500;3;0;2;%1;1502;5000\n")
                                  .arg(0x0200007f)));
        QCOMPARE(look.children("Каналы"), QStringList({"Channel_0", "Channel_1", "Channel_2", "Сеть"}));
        QCOMPARE(root.size(), 4u);

        // A device in the new serial channel, a group in that device.
        CItem* channel2 = root.FindChildByName("Channel_2");
        select(w, rowOf(w, channel2));
        fill(watcher, [](QWidget* d) {
            child<QLineEdit>(d, "nameEdit")->setText("Насос");
            child<QSpinBox>(d, "addressBox")->setValue(65);
        });
        w.on_add_device_action_triggered();
        QVERIFY(printedSince(gateway, mark).contains("Вызов метода addNode: Channel_2;2;Насос;A;"));
        QCOMPARE(look.children("Channel_2"), QStringList{"Насос"});
        select(w, rowOf(w, channel2->FindChildByName("Насос")));
        fill(watcher, [](QWidget* d) {
            child<QLineEdit>(d, "nameEdit")->setText("Быстрая");
            child<QSpinBox>(d, "updateRateBox")->setValue(200);
        });
        w.on_add_group_action_triggered();
        QVERIFY(printedSince(gateway, mark)
                    .contains(QRegularExpression(
                        "Вызов метода addNode: Channel_2.Насос;3;Быстрая;200;0\n.*Метод addNode: Good\n")));
        QVERIFY(look.exists("Channel_2.Насос.Быстрая"));
        QVERIFY(MainWindowProbe::groups(w).count("Channel_2.Насос.Быстрая"));

        // A channel edit is wrapped in a stop and a start of the exchange; the
        // renamed channel takes its whole subtree along on the gateway.
        select(w, rowOf(w, channel0));
        rename(watcher, "Линия");
        w.on_edit_action_triggered();
        const QString edit = printedSince(gateway, mark);
        const int stop = edit.indexOf("Вызов метода stopExchange: emul");
        const int change = edit.indexOf("Вызов метода editNode: Channel_0;1;Линия;0;");
        const int start = edit.indexOf("Вызов метода startExchange: emul");
        QVERIFY2(stop >= 0 && stop < change && change < start, qPrintable(edit));
        QVERIFY(look.exists("Линия.Device_0.Group_0.Tag_2"));
        QVERIFY(!look.exists("Channel_0") && !look.exists("Channel_0.Device_0.Group_0.Tag_2"));
        QCOMPARE(rowOf(w, channel0)->text(0), QString("Линия"));

        select(w, rowOf(w, device0));
        fill(watcher, [](QWidget* d) {
            child<QLineEdit>(d, "nameEdit")->setText("Котёл");
            child<QSpinBox>(d, "addressBox")->setValue(9);
        });
        w.on_edit_action_triggered();
        QVERIFY(printedSince(gateway, mark).contains("Вызов метода editNode: Линия.Device_0;2;Котёл;\\x09;"));
        QCOMPARE(look.children("Линия.Котёл"), QStringList{"Group_0"});
        QVERIFY(!look.exists("Линия.Device_0"));

        // A new update rate reaches the tags of the group: 2 s instead of 50 ms.
        CItem* group0 = device0->FindChildByName("Group_0");
        QCOMPARE(look.samplingInterval("Линия.Котёл.Group_0.Tag_0"), 50.0);
        select(w, rowOf(w, group0));
        fill(watcher, [](QWidget* d) {
            child<QComboBox>(d, "mu_UpdateRateBox")->setCurrentIndex(1);
            child<QSpinBox>(d, "updateRateBox")->setValue(2);
        });
        w.on_edit_action_triggered();
        QVERIFY(printedSince(gateway, mark)
                    .contains("Вызов метода editNode: Линия.Котёл.Group_0;3;Group_0;2;1\n"));
        QCOMPARE(look.samplingInterval("Линия.Котёл.Group_0.Tag_0"), 2000.0);
        QCOMPARE(look.children("Линия.Котёл.Group_0"), QStringList({"Tag_0", "Tag_1", "Tag_2"}));

        // Deletes: a group, then a device with its group and tags.
        select(w, rowOf(w, channel2->FindChildByName("Насос")->FindChildByName("Быстрая")));
        watcher.answer(QMessageBox::Yes);
        w.on_delete_action_triggered();
        QVERIFY(printedSince(gateway, mark).contains("Вызов метода deleteNode: Channel_2.Насос.Быстрая\n"));
        QCOMPARE(look.children("Channel_2.Насос"), QStringList());
        select(w, rowOf(w, device0));
        watcher.answer(QMessageBox::Yes);
        w.on_delete_action_triggered();
        QVERIFY(printedSince(gateway, mark).contains("Вызов метода deleteNode: Линия.Котёл\n"));
        QCOMPARE(look.children("Линия"), QStringList());
        QVERIFY(!look.exists("Линия.Котёл.Group_0.Tag_0"));
        QCOMPARE(channel0->size(), 0u);
        select(w, rowOf(w, root.FindChildByName("Сеть")));
        watcher.answer(QMessageBox::Yes);
        w.on_delete_action_triggered();
        QVERIFY(printedSince(gateway, mark).contains("Вызов метода deleteNode: Сеть\n"));
        QVERIFY(!look.exists("Сеть"));

        // A paste stays local: the gateway learns of it at its next start only.
        select(w, rowOf(w, channel2));
        w.on_copy_action_triggered();
        w.on_paste_action_triggered();
        QVERIFY(root.FindChildByName("Channel_3"));
        QVERIFY(!printedSince(gateway, mark).contains("Вызов метода"));
        QCOMPARE(look.children("Каналы"), QStringList({"Channel_1", "Channel_2", "Линия"}));

        QVERIFY(!gateway.output().contains(": Bad"));
        QVERIFY(MainWindowProbe::dirty(w));

        // Saved and started again, a gateway holds what the program holds, the paste included.
        const QString saved = m_dir.filePath("saved.cfg");
        watcher.answerFile(saved);
        w.on_save_action_triggered();
        QVERIFY(!MainWindowProbe::dirty(w));
        GatewayProcess again;
        QVERIFY2(again.start(GatewayProcess::Options(saved)), qPrintable(again.output()));
        SecondClient restarted;
        QVERIFY(restarted.connect(again.url()));
        QCOMPARE(restarted.children("Каналы"), QStringList({"Channel_1", "Channel_2", "Channel_3", "Линия"}));
        QCOMPARE(restarted.children("Channel_3"), QStringList{"Насос"});
        QCOMPARE(restarted.children("Линия"), QStringList());
        const QStringList warnings = takeWarnings();
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join("\n")));
        for (const ModalWatcher::Seen& seen : watcher.seen())
            QVERIFY2(seen.title != "Внимание", qPrintable(seen.text));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    // A second client gets there first or takes nodes away; the program then
    // shows the refusal and keeps what that command keeps.
    void refusalsOfTheGateway()
    {
        GatewayProcess gateway;
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        openAndConnect(w, watcher, gateway);
        if (QTest::currentTestFailed())
            return;
        SecondClient other;
        QVERIFY(other.connect(gateway.url()));
        CTreeItemRoot& root = MainWindowProbe::root(w);
        auto& groups = MainWindowProbe::groups(w);
        CItem* channel0 = root.FindChildByName("Channel_0");
        CItem* channel1 = root.FindChildByName("Channel_1");
        CItem* device0 = channel0->FindChildByName("Device_0");
        CItem* group0 = device0->FindChildByName("Group_0");
        int mark = gateway.output().size();
        // The box, and in the log the client's failed call followed by the same text.
        auto refused = [&](const QString& text) {
            const QStringList warnings = takeWarnings();
            return watcher.seen().last().title == "Внимание" && watcher.seen().last().text == text &&
                   warnings.size() == 2 && warnings.first().startsWith("Ошибка вызова метода") &&
                   warnings.last() == text;
        };

        // Channels and devices are checked here first: a duplicate never reaches the gateway.
        select(w, tree(w)->topLevelItem(0));
        fill(watcher, [](QWidget* d) { child<QSpinBox>(d, "comNoBox")->setValue(1); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_channel_action_triggered();
        QCOMPARE(watcher.seen().last().text,
                 QString("Добавление канала завершилось неудачно, обнаружен дубликат"));
        select(w, rowOf(w, device0));
        fill(watcher, [](QWidget* d) { child<QSpinBox>(d, "addressBox")->setValue(1); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_device_action_triggered();
        QCOMPARE(watcher.seen().last().text,
                 QString("Добавление устройства завершилось неудачно, обнаружен дубликат"));
        QVERIFY(!printedSince(gateway, mark).contains("Вызов метода"));
        QVERIFY(takeWarnings().isEmpty());
        QCOMPARE(other.children("Каналы"), QStringList({"Channel_0", "Channel_1"}));

        // Names taken on the gateway: the added channel and device are undone.
        QCOMPARE(other.call("addNode", "Каналы;1;Channel_2;0;500;3;0;0;9;9600;8;1;0;0;0;0"), QString("Good"));
        select(w, tree(w)->topLevelItem(0));
        fill(watcher, [](QWidget* d) { child<QSpinBox>(d, "comNoBox")->setValue(5); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_channel_action_triggered();
        QVERIFY(refused("Добавление канала завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(printedSince(gateway, mark).contains("Метод addNode: BadNodeIdExists"));
        QCOMPARE(root.size(), 2u);
        QCOMPARE(tree(w)->topLevelItem(0)->childCount(), 2);
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());

        QCOMPARE(other.call("addNode", "Channel_0;2;Device_1"), QString("Good"));
        select(w, rowOf(w, device0));
        fill(watcher, [](QWidget*) {});
        watcher.answer(QMessageBox::Ok);
        w.on_add_device_action_triggered();
        QVERIFY(refused("Добавление устройства завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(channel0->size(), 1u);
        QCOMPARE(rowOf(w, channel0)->childCount(), 1);

        QCOMPARE(other.call("addNode", "Channel_0.Device_0;3;Medium;1;0"), QString("Good"));
        select(w, rowOf(w, device0));
        rename(watcher, "Medium");
        watcher.answer(QMessageBox::Ok);
        w.on_add_group_action_triggered();
        QVERIFY(refused("Добавление группы завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(device0->size(), 1u);
        QCOMPARE(groups.count("Channel_0.Device_0.Medium"), size_t(0));

        // The group goes to the gateway before the local check: a name taken
        // only here leaves the gateway with a new, empty group of that name.
        QCOMPARE(other.call("deleteNode", "Channel_0.Device_0.Group_0"), QString("Good"));
        select(w, rowOf(w, device0));
        rename(watcher, "Group_0");
        watcher.answer(QMessageBox::Ok);
        w.on_add_group_action_triggered();
        QCOMPARE(watcher.seen().last().text,
                 QString("Добавление группы завершилось неудачно, обнаружен дубликат"));
        QVERIFY(takeWarnings().isEmpty()); // this one is not logged
        QVERIFY(printedSince(gateway, mark).contains("Метод addNode: Good"));
        QCOMPARE(other.children("Channel_0.Device_0.Group_0"), QStringList());
        QCOMPARE(device0->FindChildByName("Group_0"), group0);
        QCOMPARE(group0->size(), 3u);

        // Parents that the gateway no longer has.
        QCOMPARE(other.call("deleteNode", "Channel_1"), QString("Good"));
        select(w, rowOf(w, channel1));
        fill(watcher, [](QWidget*) {});
        watcher.answer(QMessageBox::Ok);
        w.on_add_device_action_triggered();
        QVERIFY(refused("Добавление устройства завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(printedSince(gateway, mark).contains("Метод addNode: BadNodeIdUnknown"));
        QCOMPARE(channel1->size(), 0u);

        QCOMPARE(other.call("deleteNode", "Channel_0.Device_0"), QString("Good"));
        select(w, rowOf(w, device0));
        fill(watcher, [](QWidget*) {});
        watcher.answer(QMessageBox::Ok);
        w.on_add_group_action_triggered();
        QVERIFY(refused("Добавление группы завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(device0->size(), 1u);

        // A refused edit keeps what the dialog wrote and the whole list.
        select(w, rowOf(w, device0));
        fill(watcher, [](QWidget* d) { child<QSpinBox>(d, "addressBox")->setValue(9); });
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QVERIFY(refused("Изменения устройства завершилось неудачно"));
        QVERIFY(printedSince(gateway, mark).contains("Метод editNode: BadNodeIdUnknown"));
        QCOMPARE(static_cast<CDeviceInfo*>(device0)->Addr, uint8_t(9));
        QCOMPARE(MainWindowProbe::infoDevice(w).size(), 9);
        MainWindowProbe::infoDevice(w).clear();

        // A refused delete takes the row away and leaves the node.
        select(w, rowOf(w, group0));
        watcher.answer(QMessageBox::Yes);
        watcher.answer(QMessageBox::Ok);
        w.on_delete_action_triggered();
        QVERIFY(refused("Удаление ноды завершилось неудачно"));
        QVERIFY(printedSince(gateway, mark).contains("Метод deleteNode: BadNodeIdUnknown"));
        QCOMPARE(rowOf(w, device0)->childCount(), 0);
        QCOMPARE(device0->FindChildByName("Group_0"), group0);
        QCOMPARE(groups.count("Channel_0.Device_0.Group_0"), size_t(1));
        select(w, rowOf(w, device0));
        watcher.answer(QMessageBox::Yes);
        watcher.answer(QMessageBox::Ok);
        w.on_delete_action_triggered();
        QVERIFY(refused("Удаление ноды завершилось неудачно"));
        QCOMPARE(rowOf(w, channel0)->childCount(), 0);
        QCOMPARE(channel0->FindChildByName("Device_0"), device0);

        // The channel edit stops the exchange, is refused, and the exchange
        // stays stopped: nothing starts it again.
        select(w, rowOf(w, channel1));
        rename(watcher, "Шлюз");
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QVERIFY(refused("Изменения канала завершилось неудачно"));
        const QString edit = printedSince(gateway, mark);
        QVERIFY(edit.contains("Вызов метода stopExchange: emul"));
        QVERIFY(edit.contains("Метод editNode: BadNodeIdUnknown"));
        QVERIFY2(!edit.contains("startExchange"), qPrintable(edit));
        QVERIFY(!MainWindowProbe::client(w)->exchangeRunning);
        QCOMPARE(channel1->GetName(), std::string("Шлюз"));
        QCOMPARE(rowOf(w, channel1)->text(0), QString("Channel_1"));

        // The gateway ends up with what the second client and the accepted calls made.
        QCOMPARE(other.children("Каналы"), QStringList({"Channel_0", "Channel_2"}));
        QCOMPARE(other.children("Channel_0"), QStringList{"Device_1"});

        // What the refused deletes left here is saved and comes back at the next start.
        const QString saved = m_dir.filePath("refused.cfg");
        watcher.answerFile(saved);
        w.on_save_action_triggered();
        GatewayProcess again;
        QVERIFY2(again.start(GatewayProcess::Options(saved)), qPrintable(again.output()));
        SecondClient restarted;
        QVERIFY(restarted.connect(again.url()));
        QCOMPARE(restarted.children("Каналы"), QStringList({"Channel_0", "Шлюз"}));
        QCOMPARE(restarted.children("Channel_0.Device_0.Group_0"), QStringList({"Tag_0", "Tag_1", "Tag_2"}));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(ConnectedItemsTest)
#include "tst_connecteditems.moc"
