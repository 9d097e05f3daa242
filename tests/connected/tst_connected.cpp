#include "app/mainwindow.h"
#include "gatewayprocess.h"
#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelvariable.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QMutex>
#include <QSpinBox>
#include <QTableView>
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

UA_NodeId nodeId(const QByteArray& id)
{
    return UA_NODEID_STRING(2, const_cast<char*>(id.data()));
}

// A client of its own beside the program's: it changes the gateway behind the
// program's back and looks at the gateway's address space independently of
// the code under test.
class SecondClient
{
public:
    explicit SecondClient(const QString& url)
    {
        UA_ClientConfig config{};
        config.logging = &g_quiet;
        UA_ClientConfig_setDefault(&config);
        m_client = UA_Client_newWithConfig(&config);
        m_connected = UA_Client_connect(m_client, url.toUtf8().constData()) == UA_STATUSCODE_GOOD;
    }
    ~SecondClient() { UA_Client_delete(m_client); }
    SecondClient(const SecondClient&) = delete;
    SecondClient& operator=(const SecondClient&) = delete;

    bool connected() const { return m_connected; }

    QString call(const char* method, const QString& argument)
    {
        const QByteArray text = argument.toUtf8();
        UA_Variant input;
        UA_String value = {size_t(text.size()), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
        UA_Variant_setScalar(&input, &value, &UA_TYPES[UA_TYPES_STRING]);
        size_t outputSize = 0;
        UA_Variant* output = nullptr;
        const QByteArray object = QString("Каналы").toUtf8(), id = object + "." + method;
        const UA_StatusCode rc =
            UA_Client_call(m_client, nodeId(object), nodeId(id), 1, &input, &outputSize, &output);
        UA_Array_delete(output, outputSize, &UA_TYPES[UA_TYPES_VARIANT]);
        return UA_StatusCode_name(rc);
    }

    // Names of the children of a node as the gateway's hierarchy shows them, not the methods;
    // with `types` each name is followed by its data type.
    QStringList children(const QString& fullName, bool types = false)
    {
        QStringList ids, names;
        const auto collect = [](UA_NodeId child, UA_Boolean inverse, UA_NodeId, void* list) -> UA_StatusCode {
            const QString id =
                child.identifierType == UA_NODEIDTYPE_STRING
                    ? QString::fromUtf8(reinterpret_cast<const char*>(child.identifier.string.data),
                                        int(child.identifier.string.length))
                    : QString();
            if (!inverse && child.namespaceIndex == 2 && !id.startsWith("Каналы."))
                *static_cast<QStringList*>(list) << id;
            return UA_STATUSCODE_GOOD;
        };
        UA_Client_forEachChildNodeCall(m_client, nodeId(fullName.toUtf8()), collect, &ids);
        for (const QString& id : ids) {
            names << id.section('.', -1);
            if (types) {
                UA_NodeId type = UA_NODEID_NULL;
                UA_Client_readDataTypeAttribute(m_client, nodeId(id.toUtf8()), &type);
                const UA_DataType* t = UA_findDataType(&type);
                names.last() += QString(" ") + (t ? t->typeName : "?");
            }
        }
        names.sort();
        return names;
    }

    double samplingInterval(const QString& fullName)
    {
        double interval = -1;
        UA_Client_readMinimumSamplingIntervalAttribute(m_client, nodeId(fullName.toUtf8()), &interval);
        return interval;
    }

private:
    UA_Client* m_client = nullptr;
    bool m_connected = false;
};

QTreeWidget* tree(MainWindow& w)
{
    return w.findChild<QTreeWidget*>("treeWidget");
}

QTreeWidgetItem* rowOf(MainWindow& w, CItem* node)
{
    for (const auto& entry : MainWindowProbe::treeItems(w))
        if (entry.second == node)
            return entry.first;
    return nullptr;
}

void select(MainWindow& w, CItem* node)
{
    tree(w)->clearSelection();
    (node ? rowOf(w, node) : tree(w)->topLevelItem(0))->setSelected(true);
}

void selectRows(MainWindow& w, const QList<int>& rows)
{
    QItemSelectionModel* selection = w.findChild<QTableView*>("tableView")->selectionModel();
    selection->clearSelection();
    for (int row : rows)
        selection->select(MainWindowProbe::tagModel(w)->index(row, 0),
                          QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

// Queues a handler that edits the next setup dialog and accepts it.
void fill(ModalWatcher& watcher, std::function<void(QWidget*)> edit)
{
    watcher.answer([edit](QWidget* w) {
        edit(w);
        qobject_cast<QDialog*>(w)->accept();
    });
}

std::function<void(QWidget*)> named(const QString& name)
{
    return [name](QWidget* d) { requireChild<QLineEdit>(d, "nameEdit")->setText(name); };
}

// The lines the gateway printed since the mark, which moves to the end.
QString printedSince(GatewayProcess& gateway, int& mark)
{
    const QString all = gateway.output();
    const QString recent = all.mid(mark);
    mark = all.size();
    return recent;
}

bool matches(const QString& text, const QString& pattern)
{
    return text.contains(QRegularExpression(pattern, QRegularExpression::DotMatchesEverythingOption));
}

} // namespace

// The item and tag commands while the program is connected to the gateway: every
// change has to show up in the gateway's address space, and every refusal of
// the gateway has to leave the local tree in the state that command promises.
class ConnectedTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // Opens a fresh copy of the example in the window and connects it through
    // the find-server dialog to a gateway running that copy.
    void openAndConnect(MainWindow& w, ModalWatcher& watcher, GatewayProcess& gateway)
    {
        const QString config = m_dir.filePath(QString("example-%1.cfg").arg(QTest::currentTestFunction()));
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config));
        QVERIFY2(gateway.start(GatewayProcess::Options(config)), qPrintable(gateway.output()));
        w.show();
        watcher.answerFile(config);
        w.on_open_action_triggered();
        watcher.answerConnect(gateway.url());
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
        openAndConnect(w, watcher, gateway);
        if (QTest::currentTestFailed())
            return;
        SecondClient look(gateway.url());
        QVERIFY(look.connected());
        CTreeItemRoot& root = MainWindowProbe::root(w);
        CItem* channel0 = root.FindChildByName("Channel_0");
        int mark = gateway.output().size();
        const auto printed = [&](const QString& text) { return printedSince(gateway, mark).contains(text); };

        // Three holding registers from one dialog, each wrapped in a stop and a start of the
        // exchange; a series that hangs is closed here after a minute so that the failure shows.
        const QString group = "Channel_0.Device_0.Group_0";
        tree(w)->setCurrentItem(rowOf(w, MainWindowProbe::groups(w).at(group)));
        fill(watcher, [](QWidget* d) {
            requireChild<QComboBox>(d, "regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
            requireChild<QSpinBox>(d, "addrBox")->setValue(100);
            requireChild<QComboBox>(d, "valTypeBox")->setCurrentText("Цел16");
            requireChild<QSpinBox>(d, "spinBox_5")->setValue(3);
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
                            .arg(group)
                            .arg(3 + i)
                            .arg(100 + i);
        const QString added = printedSince(gateway, mark);
        QVERIFY2(matches(added, expected) && added.count("Вызов метода addNode") == 3, qPrintable(added));
        QCOMPARE(look.children(group, true), QStringList({"Tag_0 Float", "Tag_1 UInt16", "Tag_2 Boolean",
                                                          "Tag_3 UInt16", "Tag_4 UInt16", "Tag_5 UInt16"}));

        // Tag_4 renamed and made a double: the gateway's node follows. Then two rows apart go.
        selectRows(w, {4});
        fill(watcher, [](QWidget* d) {
            requireChild<QLineEdit>(d, "nameEdit")->setText("Уровень");
            requireChild<QComboBox>(d, "valTypeBox")->setCurrentText("Вещ64");
        });
        w.tag_edit_action_triggered();
        QVERIFY(printed(QString("Вызов метода editNode: %1.Tag_4;4;Уровень;").arg(group)));
        selectRows(w, {1, 5});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        const QStringList left{"Tag_0 Float", "Tag_2 Boolean", "Tag_3 UInt16", "Tag_5 UInt16"};
        QCOMPARE(look.children(group, true), left);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 4);

        // A serial and a TCP channel, the second with a name that is not ASCII.
        select(w, nullptr);
        fill(watcher, [](QWidget* d) {
            requireChild<QSpinBox>(d, "comNoBox")->setValue(5);
            requireChild<QComboBox>(d, "baudRateBox")->setCurrentText("19200");
        });
        w.on_add_channel_action_triggered();
        QVERIFY(printed("Вызов метода addNode: Каналы;1;Channel_2;0;500;3;0;0;5;19200;8;1;0;0;0;0\n"));
        fill(watcher, [](QWidget* d) {
            requireChild<QComboBox>(d, "typeBox")->setCurrentIndex(1);
            requireChild<QLineEdit>(d, "nameEdit")->setText("Сеть");
            requireChild<QLineEdit>(d, "ipEdit")->setText("127.0.0.2");
            requireChild<QSpinBox>(d, "tcpPortBox")->setValue(1502);
        });
        w.on_add_channel_action_triggered();
        QVERIFY(printed(
            QString("Вызов метода addNode: Каналы;1;Сеть;1;500;3;0;2;%1;1502;5000\n").arg(0x0200007f)));
        QCOMPARE(look.children("Каналы"), QStringList({"Channel_0", "Channel_1", "Channel_2", "Сеть"}));

        // A device (its address travels as a character) and a group in it.
        CItem* channel2 = root.FindChildByName("Channel_2");
        select(w, channel2);
        fill(watcher, [](QWidget* d) {
            requireChild<QLineEdit>(d, "nameEdit")->setText("Насос");
            requireChild<QSpinBox>(d, "addressBox")->setValue(65);
        });
        w.on_add_device_action_triggered();
        QVERIFY(printed("Вызов метода addNode: Channel_2;2;Насос;A;"));
        CItem* pump = channel2->FindChildByName("Насос");
        select(w, pump);
        fill(watcher, named("Быстрая"));
        w.on_add_group_action_triggered();
        QVERIFY(matches(printedSince(gateway, mark),
                        "addNode: Channel_2.Насос;3;Быстрая;[^\n]*\n.*addNode: Good\n"));
        QCOMPARE(look.children("Channel_2.Насос"), QStringList{"Быстрая"});

        // A paste stays local: the gateway learns of it at its next start only.
        select(w, channel2);
        w.on_copy_action_triggered();
        w.on_paste_action_triggered();
        QVERIFY(!printed("Вызов метода") && !look.children("Каналы").contains("Channel_3"));

        // A device goes with its group.
        select(w, pump);
        watcher.answer(QMessageBox::Yes);
        w.on_delete_action_triggered();
        QVERIFY(printed("Вызов метода deleteNode: Channel_2.Насос\n"));
        QVERIFY(look.children("Channel_2").isEmpty() && look.children("Channel_2.Насос.Быстрая").isEmpty());

        // A channel edit is wrapped in a stop and a start of the exchange; the
        // renamed channel takes its whole subtree along on the gateway.
        select(w, channel0);
        fill(watcher, named("Линия"));
        w.on_edit_action_triggered();
        QVERIFY(matches(printedSince(gateway, mark),
                        "stopExchange: emul\n.*editNode: Channel_0;1;Линия;0;.*startExchange"));
        QVERIFY(look.children("Линия.Device_0.Group_0").contains("Tag_2") &&
                !look.children("Каналы").contains("Channel_0"));

        // A new update rate reaches the tags of the group: 2 s instead of 50 ms.
        QCOMPARE(look.samplingInterval("Линия.Device_0.Group_0.Tag_0"), 50.0);
        select(w, channel0->FindChildByName("Device_0")->FindChildByName("Group_0"));
        fill(watcher, [](QWidget* d) {
            requireChild<QComboBox>(d, "mu_UpdateRateBox")->setCurrentIndex(1);
            requireChild<QSpinBox>(d, "updateRateBox")->setValue(2);
        });
        w.on_edit_action_triggered();
        QVERIFY(printed("Вызов метода editNode: Линия.Device_0.Group_0;3;Group_0;2;1\n"));
        QCOMPARE(look.samplingInterval("Линия.Device_0.Group_0.Tag_0"), 2000.0);
        QVERIFY(!gateway.output().contains(": Bad"));

        // Saved and started again, a gateway holds what the program holds, the paste included.
        const QString saved = m_dir.filePath("saved.cfg");
        watcher.answerFile(saved);
        w.on_save_action_triggered();
        GatewayProcess again;
        QVERIFY2(again.start(GatewayProcess::Options(saved)), qPrintable(again.output()));
        SecondClient restarted(again.url());
        QCOMPARE(restarted.children("Каналы"),
                 QStringList({"Channel_1", "Channel_2", "Channel_3", "Линия", "Сеть"}));
        QCOMPARE(restarted.children("Channel_3.Насос"), QStringList{"Быстрая"});
        QCOMPARE(restarted.children("Линия.Device_0.Group_0", true), left);
        const QStringList warnings = takeWarnings();
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join("\n")));
        for (const ModalWatcher::Seen& seen : watcher.seen())
            QVERIFY2(seen.title != "Внимание", qPrintable(seen.text));
        QCOMPARE(watcher.unexpectedCount(), 0);
        QCOMPARE(watcher.pending(), 0);
    }

    // A second client gets there first or takes nodes away; the program then
    // shows the refusal and keeps what that command keeps.
    void refusalsOfTheGateway()
    {
        GatewayProcess gateway;
        ModalWatcher watcher;
        MainWindow w;
        openAndConnect(w, watcher, gateway);
        if (QTest::currentTestFailed())
            return;
        SecondClient other(gateway.url());
        QVERIFY(other.connected());
        CTreeItemRoot& root = MainWindowProbe::root(w);
        CItem* channel0 = root.FindChildByName("Channel_0");
        CItem* channel1 = root.FindChildByName("Channel_1");
        CItem* device0 = channel0->FindChildByName("Device_0");
        CItem* group0 = device0->FindChildByName("Group_0");
        int mark = gateway.output().size();
        const auto printed = [&](const QString& text) { return printedSince(gateway, mark).contains(text); };
        // Runs a command on a node with its dialog edited, and says whether its
        // box said `text` and whether the log has the client's failed call
        // followed by the same text.
        const auto attempt = [&](CItem* node, void (MainWindow::*command)(),
                                 std::function<void(QWidget*)> edit, const QString& text,
                                 bool logged = true) {
            select(w, node);
            if (edit)
                fill(watcher, edit);
            else
                watcher.answer(QMessageBox::Yes);
            watcher.answer(QMessageBox::Ok);
            (w.*command)();
            const QStringList warnings = takeWarnings();
            return watcher.seen().last().title == "Внимание" && watcher.seen().last().text == text &&
                   (logged ? warnings.size() == 2 && warnings.first().startsWith("Ошибка вызова метода") &&
                                 warnings.last() == text
                           : warnings.isEmpty());
        };
        const auto address = [](int a) {
            return [a](QWidget* d) { requireChild<QSpinBox>(d, "addressBox")->setValue(a); };
        };
        const auto comNo = [](int n) {
            return [n](QWidget* d) { requireChild<QSpinBox>(d, "comNoBox")->setValue(n); };
        };

        // Channels are checked here first: a duplicate never reaches the gateway.
        QVERIFY(attempt(nullptr, &MainWindow::on_add_channel_action_triggered, comNo(1),
                        "Добавление канала завершилось неудачно, обнаружен дубликат", false));
        QVERIFY(!printed("Вызов метода"));

        // Names taken on the gateway: the added channel and device are undone,
        // the group never added.
        QCOMPARE(other.call("addNode", "Каналы;1;Channel_2;0;500;3;0;0;9;9600;8;1;0;0;0;0"), QString("Good"));
        QVERIFY(attempt(nullptr, &MainWindow::on_add_channel_action_triggered, comNo(5),
                        "Добавление канала завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(root.size() == 2u && tree(w)->topLevelItem(0)->childCount() == 2);
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());
        QCOMPARE(other.call("addNode", "Channel_0;2;Device_1"), QString("Good"));
        QVERIFY(attempt(device0, &MainWindow::on_add_device_action_triggered, address(2),
                        "Добавление устройства завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(channel0->size() == 1u && rowOf(w, channel0)->childCount() == 1);
        QCOMPARE(other.call("addNode", "Channel_0.Device_0;3;Medium;1;0"), QString("Good"));
        QVERIFY(attempt(device0, &MainWindow::on_add_group_action_triggered, named("Medium"),
                        "Добавление группы завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(device0->size() == 1u && !MainWindowProbe::groups(w).count("Channel_0.Device_0.Medium"));

        // The group goes to the gateway before the local check: a name taken
        // only here leaves the gateway with a new, empty group of that name.
        QCOMPARE(other.call("deleteNode", "Channel_0.Device_0.Group_0"), QString("Good"));
        QVERIFY(attempt(device0, &MainWindow::on_add_group_action_triggered, named("Group_0"),
                        "Добавление группы завершилось неудачно, обнаружен дубликат", false));
        QVERIFY(printed("Метод addNode: Good"));
        QCOMPARE(other.children("Channel_0.Device_0.Group_0"), QStringList());
        QVERIFY(device0->FindChildByName("Group_0") == group0 && group0->size() == 3u);

        // A refused edit keeps what the dialog wrote and the whole list.
        QCOMPARE(other.call("deleteNode", "Channel_0.Device_0"), QString("Good"));
        QVERIFY(attempt(device0, &MainWindow::on_edit_action_triggered, address(9),
                        "Изменения устройства завершилось неудачно"));
        QVERIFY(printed("Метод editNode: BadNodeIdUnknown"));
        QCOMPARE(static_cast<CDeviceInfo*>(device0)->Addr, uint8_t(9));
        QCOMPARE(MainWindowProbe::infoDevice(w).size(), 9);
        MainWindowProbe::infoDevice(w).clear();

        // A refused delete takes the row away and leaves the node.
        QVERIFY(attempt(group0, &MainWindow::on_delete_action_triggered, nullptr,
                        "Удаление ноды завершилось неудачно"));
        QVERIFY(printed("Метод deleteNode: BadNodeIdUnknown"));
        QCOMPARE(rowOf(w, device0)->childCount(), 0);
        QVERIFY(device0->FindChildByName("Group_0") == group0 &&
                MainWindowProbe::groups(w).count("Channel_0.Device_0.Group_0"));

        // The channel edit stops the exchange, is refused, and the exchange
        // stays stopped: nothing starts it again.
        QCOMPARE(other.call("deleteNode", "Channel_1"), QString("Good"));
        QVERIFY(attempt(channel1, &MainWindow::on_edit_action_triggered, named("Шлюз"),
                        "Изменения канала завершилось неудачно"));
        const QString edit = printedSince(gateway, mark);
        QVERIFY2(edit.contains("Вызов метода stopExchange: emul") &&
                     edit.contains("Метод editNode: BadNodeIdUnknown") && !edit.contains("startExchange"),
                 qPrintable(edit));
        QVERIFY(!MainWindowProbe::client(w)->exchangeRunning);
        QCOMPARE(channel1->GetName(), std::string("Шлюз"));
        QCOMPARE(rowOf(w, channel1)->text(0), QString("Channel_1"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(ConnectedTest)
#include "tst_connected.moc"
