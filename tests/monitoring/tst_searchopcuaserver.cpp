#include "examplegateway.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"

#include <QCheckBox>
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

QStringList comboTexts(const QComboBox* box)
{
    QStringList texts;
    for (int i = 0; i < box->count(); ++i)
        texts << box->itemText(i);
    return texts;
}

// The log pane, one entry a line, without the time stamps.
QStringList logLines(const SearchOPCUAServer& dialog)
{
    QStringList lines = dialog.findChild<QPlainTextEdit*>("te_log")->toPlainText().split('\n');
    for (QString& line : lines)
        line.remove(QRegularExpression("^\\[[^]]*\\] "));
    return lines;
}

// What the busy dialog would be told, collected on the test's thread.
struct BusyRecord : QObject
{
    explicit BusyRecord(SearchOPCUAServer* dialog)
    {
        connect(dialog, &SearchOPCUAServer::signalSetLabelProgressBar, this,
                [this](QString l) { labels << l; });
        connect(dialog, &SearchOPCUAServer::signalCloseProgressBar, this, [this](int c) { codes << c; });
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

private:
    template <typename T> static T* w(const SearchOPCUAServer& d, const char* name)
    {
        return d.findChild<T*>(name);
    }
    static QPushButton* button(const SearchOPCUAServer& d, const char* name)
    {
        return w<QPushButton>(d, name);
    }

    QTemporaryDir m_dir;
    QString m_example;

private slots:
    void initTestCase()
    {
        // The client's chatter stays out of the test report.
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
        QVERIFY(button(fresh, "pb_disconnect")->isHidden());
        QVERIFY(!button(fresh, "pb_connect")->isHidden() && !button(fresh, "pb_connect")->isEnabled());
        QVERIFY(button(fresh, "pb_searchDevice")->isEnabled());
        QVERIFY(!button(fresh, "pb_getEndPoint")->isEnabled());
        QVERIFY(w<QRadioButton>(fresh, "radioButton_anonimus")->isChecked());
        QVERIFY(!w<QLineEdit>(fresh, "le_user")->isEnabled() &&
                !w<QLineEdit>(fresh, "le_password")->isEnabled());
        QCOMPARE(w<QLineEdit>(fresh, "le_password")->echoMode(), QLineEdit::Password);

        // Only the login choice opens the login fields.
        w<QRadioButton>(fresh, "radioButton_userpassword")->click();
        QVERIFY(w<QLineEdit>(fresh, "le_user")->isEnabled() &&
                w<QLineEdit>(fresh, "le_password")->isEnabled());
        w<QRadioButton>(fresh, "radioButton_certificate")->click();
        QVERIFY(!w<QLineEdit>(fresh, "le_user")->isEnabled());

        // Nothing to work on: each step says so in the pane and goes no further.
        w<QLineEdit>(fresh, "le_device")->clear();
        button(fresh, "pb_searchDevice")->click();
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

        SearchOPCUAServer known(false, nullptr, {"opc.tcp://a:1", "opc.tcp://b:2"}, {kNone}, &other);
        QCOMPARE(known.getOPCUAWrapper(), &other);
        QVERIFY(!button(known, "pb_disconnect")->isHidden() && button(known, "pb_connect")->isHidden());
        QVERIFY(!button(known, "pb_searchDevice")->isEnabled() &&
                !button(known, "pb_getEndPoint")->isEnabled());
        QCOMPARE(comboTexts(w<QComboBox>(known, "cb_server")),
                 (QStringList{"opc.tcp://a:1", "opc.tcp://b:2"}));
        QCOMPARE(comboTexts(w<QComboBox>(known, "cb_endpoint")), QStringList{kNone});

        SearchOPCUAServer before(true, nullptr, {"opc.tcp://a:1"}, {kNone}, &other);
        QVERIFY(!button(before, "pb_disconnect")->isHidden() && button(before, "pb_connect")->isHidden());
        QCOMPARE(w<QComboBox>(before, "cb_server")->count(), 0);
        QCOMPARE(w<QComboBox>(before, "cb_endpoint")->count(), 0);

        // A failed disconnection still returns to the search and tells the window.
        QSignalSpy disconnected(&before, &SearchOPCUAServer::signalDisconnect);
        button(before, "pb_disconnect")->click();
        QCOMPARE(disconnected.size(), 1);
        QVERIFY(button(before, "pb_disconnect")->isHidden() &&
                button(before, "pb_searchDevice")->isEnabled());

        // Closing by any means hands over what the boxes hold, with result 1.
        known.show();
        QTest::keyClick(&known, Qt::Key_Escape);
        QCOMPARE(known.result(), 1);
        QCOMPARE(known.getServersDlg(), (QList<QString>{"opc.tcp://a:1", "opc.tcp://b:2"}));
        QCOMPARE(known.getEndpointsDlg(), QList<QString>{kNone});
        QVERIFY(!known.getFlagServer());
    }

    void manualSearchConnectAndDisconnect()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));

        SearchOPCUAServer dialog(false, nullptr, {}, {}, nullptr);
        w<QLineEdit>(dialog, "le_device")->setText(gateway.url());
        button(dialog, "pb_searchDevice")->click();
        QCOMPARE(w<QComboBox>(dialog, "cb_server")->itemText(0), gateway.url());
        QVERIFY(button(dialog, "pb_getEndPoint")->isEnabled());
        button(dialog, "pb_getEndPoint")->click();
        QCOMPARE(comboTexts(w<QComboBox>(dialog, "cb_endpoint")), QStringList{kNone});
        QVERIFY(button(dialog, "pb_connect")->isEnabled());
        w<QCheckBox>(dialog, "checkBox_browse")->setChecked(true);
        button(dialog, "pb_connect")->click();
        QVERIFY(!button(dialog, "pb_disconnect")->isHidden() && button(dialog, "pb_connect")->isHidden());
        QVERIFY(!button(dialog, "pb_searchDevice")->isEnabled() &&
                !button(dialog, "pb_getEndPoint")->isEnabled());
        QVERIFY(logLines(dialog).contains("Подключение успешно завершено."));
        QVERIFY(logLines(dialog).contains("Найдена нода: Channel_0.Device_0 - ns=2;s=Channel_0.Device_0"));

        button(dialog, "pb_ok")->click();
        QCOMPARE(dialog.result(), 1);
        QVERIFY(dialog.getFlagServer());
        QCOMPARE(dialog.getCurrentServer(), gateway.url());
        QCOMPARE(dialog.getServersDlg().first(), gateway.url());
        QCOMPARE(dialog.getEndpointsDlg(), QList<QString>{kNone});
        QVERIFY(dialog.getVecNodesDlg().contains("ns=2;s=Channel_0.Device_0.Group_0.Tag_2"));

        // Opened again on the live connection, the dialog disconnects it.
        SearchOPCUAServer again(false, nullptr, dialog.getServersDlg(), dialog.getEndpointsDlg(),
                                dialog.getOPCUAWrapper());
        QSignalSpy disconnected(&again, &SearchOPCUAServer::signalDisconnect);
        button(again, "pb_disconnect")->click();
        QCOMPARE(disconnected.size(), 1);
        QCOMPARE(logLines(again), (QStringList{"Отключение от сервера успешно завершено", "", ""}));
        QCOMPARE(w<QComboBox>(again, "cb_server")->count(), 0);
        QVERIFY(!again.getOPCUAWrapper()->connected);
        QTRY_VERIFY(gateway.output().contains("Сессия закрыта"));

        // A refused login empties both boxes: the user starts again at the search.
        GatewayProcess::Options closed(QString(VELMORA_TEST_DATA) + "/with_users.cfg");
        closed.anonymous = false;
        GatewayProcess locked;
        QVERIFY2(locked.start(closed), qPrintable(locked.output()));
        SearchOPCUAServer refused(false, nullptr, {}, {}, nullptr);
        w<QLineEdit>(refused, "le_device")->setText(locked.url());
        button(refused, "pb_searchDevice")->click();
        button(refused, "pb_getEndPoint")->click();
        button(refused, "pb_connect")->click();
        QVERIFY(logLines(refused).filter("Не удалось подключиться к конечной точке").size() == 1);
        QCOMPARE(w<QComboBox>(refused, "cb_server")->count() + w<QComboBox>(refused, "cb_endpoint")->count(),
                 0);
        QVERIFY(!button(refused, "pb_connect")->isEnabled() &&
                !button(refused, "pb_getEndPoint")->isEnabled());

        // Cancel on a live connection closes it; the window still gets result 1.
        w<QLineEdit>(refused, "le_device")->setText(gateway.url());
        button(refused, "pb_searchDevice")->click();
        button(refused, "pb_getEndPoint")->click();
        button(refused, "pb_connect")->click();
        QVERIFY(refused.getOPCUAWrapper()->connected);
        refused.show();
        button(refused, "pb_cancel")->click();
        QCOMPARE(refused.result(), 1);
        QVERIFY(!refused.getFlagServer() && !refused.getOPCUAWrapper()->connected);
        QVERIFY(refused.getServersDlg().isEmpty());
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
        QVERIFY(connected);
        QVERIFY(dialog.getOPCUAWrapper()->connected && dialog.getOPCUAWrapper()->autoConnecting);
        QCOMPARE(busy.labels.first(), QString("Подключаемся к серверу, пожалуйста, подождите... (1 из 10)"));
        QCOMPARE(busy.labels.last(), busy.labels.first());
        const QString url = QString("opc.tcp://127.0.0.1:%1").arg(gateway.port());
        QCOMPARE(dialog.getServersDlg().first(), url);
        QCOMPARE(dialog.getEndpointsDlg(), QList<QString>{kNone});
        // The boxes follow through the queued slots.
        QTRY_COMPARE(comboTexts(w<QComboBox>(dialog, "cb_endpoint")), QStringList{kNone});
        QCOMPARE(dialog.getOPCUAWrapper()->disconnectToServer(), 0);
        QVERIFY(!dialog.getOPCUAWrapper()->autoConnecting);

        // Nothing listens on the port: the search fails and the sequence gives up with code 1.
        gateway.stop();
        SearchOPCUAServer lost(false, nullptr, {}, {}, nullptr);
        BusyRecord failed(&lost);
        bool none = false;
        worker = std::thread(&SearchOPCUAServer::autoConnect, &lost, QString::number(gateway.port()),
                             std::ref(none));
        QTRY_COMPARE_WITH_TIMEOUT(failed.codes, QList<int>{1}, 60000);
        worker.join();
        QVERIFY(!none);
        // Nine searches, five seconds apart, labelled up to nine "of 10".
        QCOMPARE(failed.labels.size(), 10);
        QCOMPARE(failed.labels.last(), QString("Подключаемся к серверу, пожалуйста, подождите... (9 из 10)"));
        QVERIFY(lost.getServersDlg().isEmpty());
    }
};

QTEST_MAIN(SearchOPCUAServerTest)
#include "tst_searchopcuaserver.moc"
