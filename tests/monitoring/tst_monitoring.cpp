#include "config/scrambler.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "tests/common/testfiles.h"
#include "views/tablemodelmonitoring.h"

#include <QtTest>
#include <QtWidgets>

#include <csignal>
#include <thread>

namespace {

const QString kGroup = "Channel_0.Device_0.Group_0";
const char kOn[] = ":/res/images/res/monitoring_on.png";
const char kOff[] = ":/res/images/res/monitoring_off.png";

QAction* action(MainWindow& w, const char* name)
{
    return requireChild<QAction>(&w, name);
}

int enabledActions(MainWindow& w)
{
    int count = 0;
    for (const char* name :
         {"open_action", "action_export_conf", "action_import_conf", "copy_action", "paste_action", "action",
          "edit_action", "save_action", "add_channel_action", "add_device_action", "add_group_action",
          "add_tag_action", "delete_action", "monitoring_action"})
        count += action(w, name)->isEnabled();
    return count;
}

bool iconIs(MainWindow& w, const char* file)
{
    return action(w, "monitoring_action")->icon().pixmap(16).toImage() == QIcon(file).pixmap(16).toImage();
}

QString cell(MainWindow& w, int row, int column)
{
    TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
    return model->data(model->index(row, column)).toString();
}

QTabWidget* tabs(MainWindow& w)
{
    return requireChild<QTabWidget>(&w, "tabWidget");
}

// The worked example with its first device emulating, so that the gateway sends live values, and 29 more
// groups of three constant tags behind its first group, written scrambled into `folder`.
QString writeEmulatedExample(const QString& folder)
{
    QString text = QString::fromUtf8(readFile(QString(VELMORA_TEST_DATA) + "/worked_example.csv"));
    // Device columns: name, address, emulation, ...
    text.replace(";Device_0;1;Нет;", ";Device_0;1;Да;");
    QString groups;
    for (int g = 1; g < 30; ++g) {
        groups +=
            QString("GROUP;1;2;3\n;Group_%1;100;мс\nTAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n").arg(g);
        for (int t = 1; t <= 3; ++t)
            groups += QString(";Тег_%1;Входной регистр;%2;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Константа;%1\n")
                          .arg(t)
                          .arg(t * 2);
    }
    text.insert(text.indexOf("CHANNEL", 1), groups);
    const QString path = folder + "/emulated_example.cfg";
    return CScrambler::WriteFile(path, text) ? path : QString();
}

const QString kNone = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";
const QString kAutoLabel = "Подключаемся к серверу, пожалуйста, подождите... (%1 из 10)";

template <typename T = QPushButton> T* child(const SearchOPCUAServer& d, const char* name)
{
    return d.findChild<T*>(name);
}

// What the server box and then the endpoint box hold.
QStringList boxes(const SearchOPCUAServer& d)
{
    QStringList texts;
    for (const char* name : {"cb_server", "cb_endpoint"})
        for (int i = 0; i < child<QComboBox>(d, name)->count(); ++i)
            texts << child<QComboBox>(d, name)->itemText(i);
    return texts;
}

// The log pane, one entry a line, without the time stamps.
QStringList logLines(const SearchOPCUAServer& d)
{
    QStringList lines = child<QPlainTextEdit>(d, "te_log")->toPlainText().split('\n');
    for (QString& line : lines)
        line.remove(QRegularExpression("^\\[[^]]*\\] "));
    return lines;
}

// Search, endpoints and an anonymous connection, as the user clicks them.
void clickThrough(SearchOPCUAServer& d, const QString& url)
{
    child<QLineEdit>(d, "le_device")->setText(url);
    for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect"})
        child(d, name)->click();
}

} // namespace

// The find-server dialog: its three opening modes, the manual sequence against the gateway and the automatic
// connection of a started gateway. Then live monitoring in the main window, against the gateway running the
// worked example with emulated values, which is killed, frozen and started again under it.
class MonitoringTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    }
    void cleanup() { OPCUAWrapper::GetInstance()->autoConnecting = false; }

    void openingModesAndLocalChecks()
    {
        OPCUAWrapper other;
        SearchOPCUAServer fresh(false, nullptr, {}, {}, &other);
        QCOMPARE(fresh.getOPCUAWrapper(), OPCUAWrapper::GetInstance()); // the argument is not used
        QVERIFY(child(fresh, "pb_disconnect")->isHidden() && !child(fresh, "pb_connect")->isEnabled());

        // Nothing to work on: each step says so in the pane and goes no further.
        child<QLineEdit>(fresh, "le_device")->clear();
        child(fresh, "pb_searchDevice")->click();
        fresh.on_pb_getEndPoint_clicked();
        fresh.on_pb_connect_clicked();
        fresh.slotSetServerDlgSearchDevice({});
        QCOMPARE(logLines(fresh), (QStringList{"Нет найденных серверов", "Нет найденных серверов",
                                               "Нет найденных точек", "Нет найденных устройств", ""}));
        const QString pane = child<QPlainTextEdit>(fresh, "te_log")->toPlainText();
        QVERIFY2(
            pane.contains(QRegularExpression("^\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\] ")),
            qPrintable(pane));

        // Known servers fill the boxes; connected before, they stay empty.
        const QStringList servers = {"opc.tcp://a:1", "opc.tcp://b:2"};
        SearchOPCUAServer known(false, nullptr, servers, {kNone}, &other);
        QCOMPARE(known.getOPCUAWrapper(), &other);
        QVERIFY(!child(known, "pb_disconnect")->isHidden() && !child(known, "pb_searchDevice")->isEnabled());
        QCOMPARE(boxes(known), servers + QStringList{kNone});
        SearchOPCUAServer before(true, nullptr, servers, {kNone}, &other);
        QVERIFY(boxes(before).isEmpty());
        // A failed disconnection still returns to the search and tells the window.
        QSignalSpy disconnected(&before, &SearchOPCUAServer::signalDisconnect);
        child(before, "pb_disconnect")->click();
        QCOMPARE(disconnected.size(), 1);
        QVERIFY(child(before, "pb_disconnect")->isHidden() && child(before, "pb_searchDevice")->isEnabled());

        // Closing by any means hands over what the boxes hold, with result 1.
        known.show();
        QTest::keyClick(&known, Qt::Key_Escape);
        QCOMPARE(known.result(), 1);
        QCOMPARE(known.getServersDlg(), servers);
        QVERIFY(!known.getFlagServer());
    }

    void manualAndAutomaticConnection()
    {
        GatewayProcess gateway, locked;
        GatewayProcess::Options open(QString(VELMORA_TEST_DATA) + "/with_users.cfg"), closed = open;
        closed.anonymous = false;
        QVERIFY2(gateway.start(open), qPrintable(gateway.output()));
        QVERIFY2(locked.start(closed), qPrintable(locked.output()));

        // A refused login empties both boxes: the user starts again at the search.
        SearchOPCUAServer dialog(false, nullptr, {}, {}, nullptr);
        clickThrough(dialog, locked.url());
        QCOMPARE(logLines(dialog).filter("Не удалось подключиться к конечной точке").size(), 1);
        QVERIFY(boxes(dialog).isEmpty());
        QVERIFY(!child(dialog, "pb_connect")->isEnabled() && !child(dialog, "pb_getEndPoint")->isEnabled());

        // The open gateway: connected, with its nodes browsed.
        dialog.findChild<QAbstractButton*>("checkBox_browse")->setChecked(true);
        clickThrough(dialog, gateway.url());
        QVERIFY(boxes(dialog).startsWith(gateway.url()) && boxes(dialog).contains(kNone));
        QVERIFY(!child(dialog, "pb_disconnect")->isHidden() &&
                !child(dialog, "pb_searchDevice")->isEnabled());
        QVERIFY(logLines(dialog).contains("Подключение успешно завершено."));
        QVERIFY(logLines(dialog).contains("Найдена нода: Channel_0.Device_0 - ns=2;s=Channel_0.Device_0"));

        // Cancel on a live connection closes it; the window still gets result 1.
        dialog.show();
        child(dialog, "pb_cancel")->click();
        QCOMPARE(dialog.result(), 1);
        QVERIFY(!dialog.getFlagServer() && !dialog.getOPCUAWrapper()->connected);
        QVERIFY(dialog.getServersDlg().isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(gateway.output().contains("Сессия закрыта"), 10000);

        // The automatic sequence of a started gateway, from a worker thread.
        SearchOPCUAServer automatic(false, nullptr, {}, {}, nullptr);
        QStringList told; // what the busy dialog would be told: labels and the closing code in turn
        connect(&automatic, &SearchOPCUAServer::signalSetLabelProgressBar, [&told](QString l) { told << l; });
        connect(&automatic, &SearchOPCUAServer::signalCloseProgressBar,
                [&told](int c) { told << QString::number(c); });
        bool connected = false;
        std::thread worker(&SearchOPCUAServer::autoConnect, &automatic, QString::number(gateway.port()),
                           std::ref(connected));
        QTRY_COMPARE_WITH_TIMEOUT(told, (QStringList{kAutoLabel.arg(1), kAutoLabel.arg(1), "0"}), 30000);
        worker.join();
        OPCUAWrapper* client = automatic.getOPCUAWrapper();
        QVERIFY(connected && client->connected && client->autoConnecting);
        // The boxes follow through the queued slots.
        QTRY_VERIFY(boxes(automatic).startsWith(gateway.url()) && boxes(automatic).contains(kNone));
        QCOMPARE(client->disconnectToServer(), 0);
        QVERIFY(!client->autoConnecting);
    }
    void monitorLoseAndResume();
};

void MonitoringTest::monitorLoseAndResume()
{
    GatewayProcess::Options options(writeEmulatedExample(m_dir.path()));
    GatewayProcess gateway;
    QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
    Session s(options.config);
    MainWindow& w = s.w;
    s.select(s.node(kGroup));

    // No connection yet: the switch only warns.
    s.watcher.answer(QMessageBox::Ok);
    action(w, "monitoring_action")->trigger();
    QCOMPARE(
        s.watcher.seen().last().text,
        QString("Нет подключенных серверов, запустите сервер или подключитесь к нему через меню Сервис"));

    s.watcher.answerConnect(gateway.url());
    action(w, "action")->trigger();
    const QString connectedLabel = QString(" Подключены к серверу (%1).").arg(gateway.url());
    QCOMPARE(MainWindowProbe::statusLabel(w)->text(), connectedLabel);
    action(w, "monitoring_action")->trigger();
    QVERIFY(MainWindowProbe::monitoring(w) && iconIs(w, kOn));
    QVERIFY(enabledActions(w) == 1 && action(w, "monitoring_action")->isEnabled());
    QCOMPARE(tabs(w)->currentIndex(), 2);

    // Values with their quality and arrival time. The constant comes once, while the 29 groups behind are
    // still being subscribed, and must not be lost.
    for (int row = 0; row < 3; ++row)
        QTRY_COMPARE_WITH_TIMEOUT(cell(w, row, 2), QString("Good"), 10000);
    QCOMPARE(cell(w, 0, 1), QString("0"));
    QVERIFY(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}$")
                .match(cell(w, 2, 3))
                .hasMatch());

    // A value finds its row by subscription and name; decimals beyond six are cut, an exponent stays.
    TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
    const int sub = MainWindowProbe::subscriptionRows(w).firstKey();
    const QString tag0 = kGroup + ".Tag_0";
    auto inject = [&](const QVariant& value, const QString& name, int id) {
        w.slotDataChange({uint(1), value, QString("Good"), name, uint(id)});
        return model->groupValues(kGroup).at(1).toString();
    };
    QCOMPARE(inject(1.2246467991473532e-16, tag0, sub), QString("1.224646e-16"));
    QCOMPARE(inject(12.3456789, tag0, sub), QString("12.345678"));
    QCOMPARE(inject(7.5, kGroup + ".Tag_9", sub), QString("12.345678")); // unknown name
    QCOMPARE(inject(7.5, tag0, sub + 99), QString("12.345678"));         // unknown subscription
    w.slotDataChange({QString("BadNoCommunication")});
    QCOMPARE(model->groupValues(kGroup).at(1).toString(), QString("12.345678"));

    // Groups never shown are not even copied where their values arrive; a group selected is heard from at
    // once, not from the next refresh on.
    const QString other = "Channel_0.Device_0.Group_5";
    int otherSub = -1;
    for (auto it = MainWindowProbe::subscriptionRows(w).constBegin();
         it != MainWindowProbe::subscriptionRows(w).constEnd(); ++it)
        if (it.value().first().startsWith(other + "."))
            otherSub = it.key();
    OPCUAWrapper* client = OPCUAWrapper::GetInstance();
    QTRY_VERIFY(client->muted(otherSub));
    QVERIFY(!client->muted(sub));
    s.select(s.node(other));
    QVERIFY(!client->muted(otherSub) && !client->muted(sub));
    s.select(s.node(kGroup));

    // With a channel selected the tab is off and values are dropped; back on the group they come again.
    s.select(s.node("Channel_0"));
    QVERIFY(!tabs(w)->isTabEnabled(2));
    QCOMPARE(inject(7.5, tag0, sub), QString("12.345678"));
    const QList<QVariant> frozen = model->groupValues(kGroup);
    s.select(s.node(kGroup));
    QTRY_VERIFY_WITH_TIMEOUT(model->groupValues(kGroup) != frozen, 10000);

    // The Delete key of the tree still works and reaches the gateway at once.
    s.select(s.node("Channel_1"));
    s.watcher.answer(QMessageBox::Yes);
    w.activateWindow();
    s.tree()->setFocus();
    QTRY_VERIFY(s.tree()->hasFocus());
    QTest::keyClick(s.tree(), Qt::Key_Delete);
    QTRY_VERIFY_WITH_TIMEOUT(gateway.output().contains("Вызов метода deleteNode: Channel_1"), 10000);

    // Stopped with a channel selected, the toolbar follows the channel; on the group, all its commands are
    // back.
    s.select(s.node("Channel_0"));
    action(w, "monitoring_action")->trigger();
    QVERIFY(!MainWindowProbe::monitoring(w) && MainWindowProbe::subscriptionRows(w).isEmpty() &&
            iconIs(w, kOff));
    QVERIFY(action(w, "add_device_action")->isEnabled() && !action(w, "add_tag_action")->isEnabled());
    s.select(s.node(kGroup));
    QCOMPARE(enabledActions(w), 14);

    // Killed under live monitoring: noticed within seconds, monitoring ends, the line says why, no value
    // passes for live any more, and the program is no longer connected: the switch asks for a connection.
    action(w, "monitoring_action")->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(cell(w, 2, 2), QString("Good"), 10000);
    ::kill(pid_t(gateway.processId()), SIGKILL);
    QTRY_VERIFY_WITH_TIMEOUT(!MainWindowProbe::monitoring(w), 5000);
    const QString reason = cell(w, 0, 2);
    QVERIFY2(reason.startsWith("Bad") && cell(w, 2, 2) == reason, qPrintable(reason));
    QCOMPARE(MainWindowProbe::statusLabel(w)->text(), " Соединение с сервером потеряно: " + reason);
    QVERIFY(!MainWindowProbe::monitoringTimer(w)->isActive() && iconIs(w, kOff) && enabledActions(w) == 14);
    QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
    s.watcher.answer(QMessageBox::Ok);
    action(w, "monitoring_action")->trigger();
    QCOMPARE(
        s.watcher.seen().last().text,
        QString("Нет подключенных серверов, запустите сервер или подключитесь к нему через меню Сервис"));

    // Back on its port: the dialog starts at the search as the first time; opened again it shows the
    // connection and can end it.
    options.port = gateway.port();
    QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
    bool fresh = false;
    s.watcher.answer([&fresh, url = gateway.url()](QWidget* dialog) {
        fresh = requireChild<QPushButton>(dialog, "pb_searchDevice")->isEnabled() &&
                requireChild<QPushButton>(dialog, "pb_disconnect")->isHidden();
        requireChild<QLineEdit>(dialog, "le_device")->setText(url);
        for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
            requireChild<QPushButton>(dialog, name)->click();
    });
    action(w, "action")->trigger();
    QVERIFY(fresh && MainWindowProbe::connected(w));
    s.watcher.answer([](QWidget* dialog) {
        requireChild<QPushButton>(dialog, "pb_disconnect")->click();
        requireChild<QPushButton>(dialog, "pb_ok")->click();
    });
    action(w, "action")->trigger();
    QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
    QCOMPARE(MainWindowProbe::statusLabel(w)->text(), QString("Сервер не запущен"));

    // Connected again, the first start of monitoring works, and calls go through.
    s.watcher.answerConnect(gateway.url());
    action(w, "action")->trigger();
    QCOMPARE(MainWindowProbe::statusLabel(w)->text(), connectedLabel);
    action(w, "monitoring_action")->trigger();
    QVERIFY(MainWindowProbe::monitoring(w));
    QTRY_COMPARE_WITH_TIMEOUT(cell(w, 2, 2), QString("Good"), 10000);
    QVERIFY(MainWindowProbe::client(w)->callDeleteNode({"Channel_0.Device_0.Group_1"}));

    // Started again, the tags the gateway no longer has are told and the others monitored.
    action(w, "monitoring_action")->trigger();
    s.watcher.answer(QMessageBox::Ok);
    action(w, "monitoring_action")->trigger();
    QVERIFY(s.watcher.seen().last().text.startsWith("Сервер отказал в мониторинге тегов (3), остальные"));
    QVERIFY(s.watcher.seen().last().text.endsWith("\nChannel_0.Device_0.Group_1.Тег_3: BadNodeIdUnknown"));
    QVERIFY(MainWindowProbe::monitoring(w));
    QTRY_COMPARE_WITH_TIMEOUT(cell(w, 2, 2), QString("Good"), 10000);

    // Frozen, its connection still open: only its silence tells, within seconds as well.
    ::kill(pid_t(gateway.processId()), SIGSTOP);
    QTRY_VERIFY_WITH_TIMEOUT(!MainWindowProbe::monitoring(w), 5000);
    QCOMPARE(cell(w, 2, 2), QString("BadTimeout"));
    QVERIFY(!MainWindowProbe::connected(w));
    ::kill(pid_t(gateway.processId()), SIGKILL);
}

QTEST_MAIN(MonitoringTest)
#include "tst_monitoring.moc"
