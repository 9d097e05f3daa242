#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <thread>

namespace {

const QString kNone = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";
const QString kAutoLabel = "Подключаемся к серверу, пожалуйста, подождите... (%1 из 10)";

template <typename T = QPushButton> T* w(const SearchOPCUAServer& d, const char* name)
{
    return d.findChild<T*>(name);
}

// What the server box and then the endpoint box hold.
QStringList boxes(const SearchOPCUAServer& d)
{
    QStringList texts;
    for (const char* name : {"cb_server", "cb_endpoint"})
        for (int i = 0; i < w<QComboBox>(d, name)->count(); ++i)
            texts << w<QComboBox>(d, name)->itemText(i);
    return texts;
}

// The log pane, one entry a line, without the time stamps.
QStringList logLines(const SearchOPCUAServer& d)
{
    QStringList lines = w<QPlainTextEdit>(d, "te_log")->toPlainText().split('\n');
    for (QString& line : lines)
        line.remove(QRegularExpression("^\\[[^]]*\\] "));
    return lines;
}

// Search, endpoints and an anonymous connection, as the user clicks them.
void clickThrough(SearchOPCUAServer& d, const QString& url)
{
    w<QLineEdit>(d, "le_device")->setText(url);
    for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect"})
        w(d, name)->click();
}

} // namespace

// The find-server dialog: its three opening modes, the manual sequence against the gateway, and the
// automatic connection of a started gateway.
class SearchOPCUAServerTest : public QObject
{
    Q_OBJECT

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
        QVERIFY(w(fresh, "pb_disconnect")->isHidden() && !w(fresh, "pb_connect")->isEnabled());

        // Nothing to work on: each step says so in the pane and goes no further.
        w<QLineEdit>(fresh, "le_device")->clear();
        w(fresh, "pb_searchDevice")->click();
        fresh.on_pb_getEndPoint_clicked();
        fresh.on_pb_connect_clicked();
        fresh.slotSetServerDlgSearchDevice({});
        QCOMPARE(logLines(fresh), (QStringList{"Нет найденных серверов", "Нет найденных серверов",
                                               "Нет найденных точек", "Нет найденных устройств", ""}));
        const QString pane = w<QPlainTextEdit>(fresh, "te_log")->toPlainText();
        QVERIFY2(
            pane.contains(QRegularExpression("^\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\] ")),
            qPrintable(pane));

        // Known servers fill the boxes; connected before, they stay empty.
        const QStringList servers = {"opc.tcp://a:1", "opc.tcp://b:2"};
        SearchOPCUAServer known(false, nullptr, servers, {kNone}, &other);
        QCOMPARE(known.getOPCUAWrapper(), &other);
        QVERIFY(!w(known, "pb_disconnect")->isHidden() && !w(known, "pb_searchDevice")->isEnabled());
        QCOMPARE(boxes(known), servers + QStringList{kNone});
        SearchOPCUAServer before(true, nullptr, servers, {kNone}, &other);
        QVERIFY(boxes(before).isEmpty());
        // A failed disconnection still returns to the search and tells the window.
        QSignalSpy disconnected(&before, &SearchOPCUAServer::signalDisconnect);
        w(before, "pb_disconnect")->click();
        QCOMPARE(disconnected.size(), 1);
        QVERIFY(w(before, "pb_disconnect")->isHidden() && w(before, "pb_searchDevice")->isEnabled());

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
        QVERIFY(!w(dialog, "pb_connect")->isEnabled() && !w(dialog, "pb_getEndPoint")->isEnabled());

        // The open gateway: connected, with its nodes browsed.
        dialog.findChild<QAbstractButton*>("checkBox_browse")->setChecked(true);
        clickThrough(dialog, gateway.url());
        QVERIFY(boxes(dialog).startsWith(gateway.url()) && boxes(dialog).contains(kNone));
        QVERIFY(!w(dialog, "pb_disconnect")->isHidden() && !w(dialog, "pb_searchDevice")->isEnabled());
        QVERIFY(logLines(dialog).contains("Подключение успешно завершено."));
        QVERIFY(logLines(dialog).contains("Найдена нода: Channel_0.Device_0 - ns=2;s=Channel_0.Device_0"));

        // Cancel on a live connection closes it; the window still gets result 1.
        dialog.show();
        w(dialog, "pb_cancel")->click();
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
};

QTEST_MAIN(SearchOPCUAServerTest)
#include "tst_searchopcuaserver.moc"
