#include "examplegateway.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <thread>

namespace {

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";
const QString kAutoLabel = "Подключаемся к серверу, пожалуйста, подождите... (%1 из 10)";

template <typename T = QPushButton> T* w(const SearchOPCUAServer& d, const char* name)
{
    return d.findChild<T*>(name);
}

QStringList comboTexts(const SearchOPCUAServer& d, const char* name)
{
    QStringList texts;
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

// What the busy dialog would be told, collected on the test's thread.
struct BusyRecord : QObject
{
    explicit BusyRecord(SearchOPCUAServer* d)
    {
        connect(d, &SearchOPCUAServer::signalSetLabelProgressBar, this, [this](QString l) { labels << l; });
        connect(d, &SearchOPCUAServer::signalCloseProgressBar, this, [this](int c) { codes << c; });
    }
    QStringList labels;
    QList<int> codes;
};

} // namespace

// The find-server dialog: its three opening modes, the manual sequence
// against the gateway, and the automatic connection of a started gateway.
class SearchOPCUAServerTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_example;

private slots:
    void initTestCase()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        m_example = writeEmulatedExample(m_dir.path());
        QVERIFY(!m_example.isEmpty());
    }
    void cleanup() { OPCUAWrapper::GetInstance()->autoConnecting = false; }

    void openingModesAndLocalChecks()
    {
        OPCUAWrapper other;
        SearchOPCUAServer fresh(false, nullptr, {}, {}, &other);
        QCOMPARE(fresh.windowTitle(), QString("Найти сервер OPC UA"));
        QCOMPARE(fresh.getOPCUAWrapper(), OPCUAWrapper::GetInstance()); // the argument is not used
        QCOMPARE(w<QLineEdit>(fresh, "le_device")->text(), QString("opc.tcp://127.0.0.1:4840"));
        QVERIFY(w(fresh, "pb_disconnect")->isHidden() && !w(fresh, "pb_connect")->isHidden());
        QVERIFY(!w(fresh, "pb_connect")->isEnabled() && !w(fresh, "pb_getEndPoint")->isEnabled());
        QVERIFY(w(fresh, "pb_searchDevice")->isEnabled());
        QVERIFY(!w<QLineEdit>(fresh, "le_user")->isEnabled());
        w<QRadioButton>(fresh, "radioButton_userpassword")->click();
        QVERIFY(w<QLineEdit>(fresh, "le_user")->isEnabled() &&
                w<QLineEdit>(fresh, "le_password")->isEnabled());

        // Nothing to work on: each step says so in the pane and goes no further.
        w<QLineEdit>(fresh, "le_device")->clear();
        w(fresh, "pb_searchDevice")->click();
        fresh.on_pb_getEndPoint_clicked();
        fresh.on_pb_connect_clicked();
        fresh.slotSetServerDlgSearchDevice({});
        QCOMPARE(logLines(fresh), (QStringList{"Нет найденных серверов", "Нет найденных серверов",
                                               "Нет найденных точек", "Нет найденных устройств", ""}));
        const QString pane = w<QPlainTextEdit>(fresh, "te_log")->toPlainText();
        QVERIFY2(QRegularExpression(
                     "^\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\] Нет найденных серверов\\n")
                     .match(pane)
                     .hasMatch(),
                 qPrintable(pane));

        const QStringList servers = {"opc.tcp://a:1", "opc.tcp://b:2"};
        SearchOPCUAServer known(false, nullptr, servers, {kNone}, &other);
        QCOMPARE(known.getOPCUAWrapper(), &other);
        QVERIFY(!w(known, "pb_disconnect")->isHidden() && w(known, "pb_connect")->isHidden());
        QVERIFY(!w(known, "pb_searchDevice")->isEnabled());
        QCOMPARE(comboTexts(known, "cb_server"), servers);
        QCOMPARE(comboTexts(known, "cb_endpoint"), QStringList{kNone});

        SearchOPCUAServer before(true, nullptr, servers, {kNone}, &other);
        QVERIFY(!w(before, "pb_disconnect")->isHidden() && w(before, "pb_connect")->isHidden());
        QVERIFY(comboTexts(before, "cb_server").isEmpty() && comboTexts(before, "cb_endpoint").isEmpty());
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
        QCOMPARE(known.getEndpointsDlg(), QList<QString>{kNone});
        QVERIFY(!known.getFlagServer());
    }

    void manualSearchConnectAndCancel()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
        SearchOPCUAServer dialog(false, nullptr, {}, {}, nullptr);
        dialog.findChild<QAbstractButton*>("checkBox_browse")->setChecked(true);
        clickThrough(dialog, gateway.url());
        QCOMPARE(comboTexts(dialog, "cb_endpoint"), QStringList{kNone});
        QVERIFY(!w(dialog, "pb_disconnect")->isHidden() && w(dialog, "pb_connect")->isHidden());
        QVERIFY(!w(dialog, "pb_searchDevice")->isEnabled() && !w(dialog, "pb_getEndPoint")->isEnabled());
        QVERIFY(logLines(dialog).contains("Подключение успешно завершено."));
        w(dialog, "pb_ok")->click();
        QCOMPARE(dialog.result(), 1);
        QVERIFY(dialog.getFlagServer());
        QCOMPARE(dialog.getCurrentServer(), gateway.url());
        QCOMPARE(dialog.getServersDlg().first(), gateway.url());
        QVERIFY(dialog.getVecNodesDlg().contains("ns=2;s=Channel_0.Device_0.Group_0.Tag_2"));
        QCOMPARE(dialog.getOPCUAWrapper()->disconnectToServer(), 0);

        // A refused login empties both boxes: the user starts again at the search.
        GatewayProcess::Options closed(QString(VELMORA_TEST_DATA) + "/with_users.cfg");
        closed.anonymous = false;
        GatewayProcess locked;
        QVERIFY2(locked.start(closed), qPrintable(locked.output()));
        SearchOPCUAServer refused(false, nullptr, {}, {}, nullptr);
        clickThrough(refused, locked.url());
        QCOMPARE(logLines(refused).filter("Не удалось подключиться к конечной точке").size(), 1);
        QVERIFY(comboTexts(refused, "cb_server").isEmpty() && comboTexts(refused, "cb_endpoint").isEmpty());
        QVERIFY(!w(refused, "pb_connect")->isEnabled() && !w(refused, "pb_getEndPoint")->isEnabled());

        // Cancel on a live connection closes it; the window still gets result 1.
        clickThrough(refused, gateway.url());
        QVERIFY(refused.getOPCUAWrapper()->connected);
        refused.show();
        w(refused, "pb_cancel")->click();
        QCOMPARE(refused.result(), 1);
        QVERIFY(!refused.getFlagServer() && !refused.getOPCUAWrapper()->connected);
        QVERIFY(refused.getServersDlg().isEmpty());
        QTRY_VERIFY(gateway.output().count("Сессия закрыта") == 2);
    }

    void automaticConnection()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
        SearchOPCUAServer dialog(false, nullptr, {}, {}, nullptr);
        BusyRecord busy(&dialog);
        bool connected = false;
        std::thread worker(&SearchOPCUAServer::autoConnect, &dialog, QString::number(gateway.port()),
                           std::ref(connected));
        QTRY_COMPARE_WITH_TIMEOUT(busy.codes, QList<int>{0}, 15000);
        worker.join();
        QVERIFY(connected && dialog.getOPCUAWrapper()->connected && dialog.getOPCUAWrapper()->autoConnecting);
        QCOMPARE(busy.labels, QStringList(2, kAutoLabel.arg(1)));
        QCOMPARE(dialog.getServersDlg().first(), QString("opc.tcp://127.0.0.1:%1").arg(gateway.port()));
        QCOMPARE(dialog.getEndpointsDlg(), QList<QString>{kNone});
        // The boxes follow through the queued slots.
        QTRY_COMPARE(comboTexts(dialog, "cb_endpoint"), QStringList{kNone});
        QCOMPARE(dialog.getOPCUAWrapper()->disconnectToServer(), 0);
        QVERIFY(!dialog.getOPCUAWrapper()->autoConnecting);

        // Nothing listens on the port: nine searches five seconds apart, then code 1.
        gateway.stop();
        SearchOPCUAServer lost(false, nullptr, {}, {}, nullptr);
        BusyRecord failed(&lost);
        bool none = false;
        worker = std::thread(&SearchOPCUAServer::autoConnect, &lost, QString::number(gateway.port()),
                             std::ref(none));
        QTRY_COMPARE_WITH_TIMEOUT(failed.codes, QList<int>{1}, 60000);
        worker.join();
        QVERIFY(!none && lost.getServersDlg().isEmpty());
        QCOMPARE(failed.labels.size(), 10);
        QCOMPARE(failed.labels.last(), kAutoLabel.arg(9));
    }
};

QTEST_MAIN(SearchOPCUAServerTest)
#include "tst_searchopcuaserver.moc"
