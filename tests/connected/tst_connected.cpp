#include "app/mainwindow.h"
#include "gatewayprocess.h"
#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/capturedlog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QtTest>
#include <QtWidgets>

#include <csignal>

namespace {

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

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

// The item and tag commands while the program is connected to the gateway: every change has to
// reach the gateway, and every refusal of the gateway has to leave the local tree in the state that
// command promises. What an accepted call does to the address space is the gateway's own tests'
// business; here the gateway's log shows what the program sent and whether it was taken.
class ConnectedTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // Starts the gateway on a fresh copy of the example, opens that copy in the window and connects
    // it through the find-server dialog.
    std::unique_ptr<Session> openAndConnect(GatewayProcess& gateway)
    {
        const QString config = m_dir.filePath(QString("example-%1.cfg").arg(QTest::currentTestFunction()));
        if (!QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config) ||
            !gateway.start(GatewayProcess::Options(config)))
            return nullptr;
        auto s = std::make_unique<Session>(config);
        s->watcher.answerConnect(gateway.url());
        s->w.findChild<QAction*>("action")->trigger();
        CapturedLog::takeWarnings();
        return MainWindowProbe::connected(s->w) ? std::move(s) : nullptr;
    }

private slots:
    void initTestCase() { CapturedLog::install(); }

    void changesReachTheGateway()
    {
        GatewayProcess gateway;
        const std::unique_ptr<Session> session = openAndConnect(gateway);
        QVERIFY2(session, qPrintable(gateway.output()));
        Session& s = *session;
        int mark = gateway.output().size();
        QString recent;
        // The calls printed since the last look, each followed by its answer, in this order.
        const auto sent = [&](const QStringList& calls) {
            QString pattern;
            for (const QString& call : calls)
                pattern += "Вызов метода " + QRegularExpression::escape(call) + "[^\n]*\n.*";
            recent = printedSince(gateway, mark);
            return matches(recent, pattern) && !recent.contains(": Bad");
        };

        // Three holding registers from one dialog, each wrapped in a stop and a start of the
        // exchange; a series that hangs is closed here after a minute so that the failure shows.
        const QString group = "Channel_0.Device_0.Group_0";
        s.select(s.node(group));
        s.accept([](QWidget* d) {
            requireChild<QComboBox>(d, "regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
            requireChild<QSpinBox>(d, "addrBox")->setValue(100);
            requireChild<QComboBox>(d, "valTypeBox")->setCurrentText("Цел16");
            requireChild<QSpinBox>(d, "spinBox_5")->setValue(3);
        });
        bool hung = false;
        QTimer::singleShot(60000, &s.w, [&] {
            hung = true;
            emit s.w.signalCloseProgressBar(0);
        });
        s.w.on_add_tag_action_triggered();
        QVERIFY(!hung);
        QStringList series;
        for (int i = 0; i < 3; ++i)
            series << "stopExchange"
                   << QString("addNode: %1;4;Tag_%2;3;%3;2;").arg(group).arg(3 + i).arg(100 + i)
                   << "startExchange";
        QVERIFY2(sent(series), qPrintable(recent));
        QCOMPARE(MainWindowProbe::tagModel(s.w)->rowCount(), 6);

        // Tag_4 renamed and made a double, then two rows apart go.
        s.selectRows({4});
        s.accept([](QWidget* d) {
            requireChild<QLineEdit>(d, "nameEdit")->setText("Уровень");
            requireChild<QComboBox>(d, "valTypeBox")->setCurrentText("Вещ64");
        });
        s.w.tag_edit_action_triggered();
        QVERIFY2(sent({QString("editNode: %1.Tag_4;4;Уровень;3;101;1;").arg(group)}), qPrintable(recent));
        s.selectRows({1, 5});
        s.watcher.answer(QMessageBox::Yes);
        s.w.tag_delete_action_triggered();
        QVERIFY2(sent({"deleteNode: " + group + ".Tag_1", "deleteNode: " + group + ".Уровень"}),
                 qPrintable(recent));
        QCOMPARE(s.node(group)->size(), 4u);

        // A serial channel.
        s.select(nullptr);
        s.accept([](QWidget* d) {
            requireChild<QSpinBox>(d, "comNoBox")->setValue(5);
            requireChild<QComboBox>(d, "baudRateBox")->setCurrentText("19200");
        });
        s.w.on_add_channel_action_triggered();
        QVERIFY2(sent({"addNode: Каналы;1;Channel_2;0;500;3;0;0;5;19200;8;1;0;0;0;0\n"}), qPrintable(recent));

        // A device (its address travels as a character) and a group in it; a paste stays local.
        CItem* channel2 = s.node("Channel_2");
        s.select(channel2);
        s.accept([](QWidget* d) {
            requireChild<QLineEdit>(d, "nameEdit")->setText("Насос");
            requireChild<QSpinBox>(d, "addressBox")->setValue(65);
        });
        s.w.on_add_device_action_triggered();
        s.select(s.node("Channel_2.Насос"));
        s.accept(Session::rename("Быстрая"));
        s.w.on_add_group_action_triggered();
        QVERIFY2(sent({"addNode: Channel_2;2;Насос;A;", "addNode: Channel_2.Насос;3;Быстрая;"}),
                 qPrintable(recent));
        s.select(channel2);
        s.w.on_copy_action_triggered();
        s.w.on_paste_action_triggered();
        QVERIFY(s.node("Channel_3.Насос.Быстрая") && !printedSince(gateway, mark).contains("Вызов метода"));

        // A channel edit is wrapped in a stop and a start of the exchange; a group's new rate
        // and a device's delete go out as they are.
        s.select(s.node("Channel_0"));
        s.accept(Session::rename("Линия"));
        s.w.on_edit_action_triggered();
        s.select(s.node("Channel_0.Device_0.Group_0"));
        s.accept([](QWidget* d) {
            requireChild<QComboBox>(d, "mu_UpdateRateBox")->setCurrentIndex(1);
            requireChild<QSpinBox>(d, "updateRateBox")->setValue(2);
        });
        s.w.on_edit_action_triggered();
        s.select(s.node("Channel_2.Насос"));
        s.watcher.answer(QMessageBox::Yes);
        s.w.on_delete_action_triggered();
        QVERIFY2(sent({"stopExchange", "editNode: Channel_0;1;Линия;0;", "startExchange",
                       "editNode: Линия.Device_0.Group_0;3;Group_0;2;1\n", "deleteNode: Channel_2.Насос\n"}),
                 qPrintable(recent));

        const QStringList warnings = CapturedLog::takeWarnings();
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join("\n")));
        for (const ModalWatcher::Seen& seen : s.watcher.seen())
            QVERIFY2(seen.title != "Внимание", qPrintable(seen.text));
        QCOMPARE(s.watcher.pending(), 0);

        // The gateway killed while nothing is monitored: within seconds the program is no longer
        // connected, and an added and an edited tag stay in the tree and mark the file changed, with
        // no call, no box and no busy dialog waiting. Both tables show the tree's tags.
        const QString line = "Channel_0.Device_0.Group_0"; // the channel's key keeps its old name
        s.select(s.node(line));
        ::kill(pid_t(gateway.processId()), SIGKILL);
        QTRY_VERIFY_WITH_TIMEOUT(!MainWindowProbe::connected(s.w), 5000);
        QVERIFY(MainWindowProbe::statusLabel(s.w)->text().startsWith(" Соединение с сервером потеряно: "));
        MainWindowProbe::dirty(s.w) = false;
        const int boxes = s.watcher.seen().size();
        s.accept();
        s.w.on_add_tag_action_triggered();
        QVERIFY(MainWindowProbe::dirty(s.w) && s.node(line)->size() == 5u);
        MainWindowProbe::dirty(s.w) = false;
        s.selectRows({0});
        s.accept(Session::rename("Местный"));
        s.w.tag_edit_action_triggered();
        QVERIFY(MainWindowProbe::dirty(s.w) && s.node(line + ".Местный"));
        QStringList names;
        for (const auto& tag : *s.node(line))
            names << QString::fromStdString(tag.second->GetName());
        for (QAbstractItemModel* model : std::initializer_list<QAbstractItemModel*>{
                 MainWindowProbe::tagModel(s.w), MainWindowProbe::monitoringModel(s.w)}) {
            QStringList shown;
            for (int r = 0; r < model->rowCount(); ++r)
                shown << model->index(r, 0).data().toString();
            QCOMPARE(shown, names);
        }
        QVERIFY(s.watcher.seen().size() == boxes + 2 && !QApplication::activeModalWidget());
        const QStringList afterLoss = CapturedLog::takeWarnings();
        QVERIFY2(afterLoss.filter("Ошибка вызова").isEmpty(), qPrintable(afterLoss.join("\n")));
    }

    // A second client gets there first or takes nodes away; the program then
    // shows the refusal and keeps what that command keeps.
    void refusalsOfTheGateway()
    {
        GatewayProcess gateway;
        const std::unique_ptr<Session> session = openAndConnect(gateway);
        QVERIFY2(session, qPrintable(gateway.output()));
        Session& s = *session;
        // A client of its own changes the gateway behind the program's back.
        OPCUAWrapper other;
        QVERIFY(other.findServers(gateway.url()) == 0 && other.getEndpoints(gateway.url()) == 0 &&
                other.connectToServer(gateway.url(), kNone, true, 0, "", "") == 0);
        const auto call = [&](bool (OPCUAWrapper::*method)(QList<QString>), const QString& argument) {
            return (other.*method)(argument.split(';'));
        };
        CapturedLog::takeWarnings();
        CTreeItemRoot& root = MainWindowProbe::root(s.w);
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
            s.select(node);
            if (edit)
                s.accept(edit);
            else
                s.watcher.answer(QMessageBox::Yes);
            s.watcher.answer(QMessageBox::Ok);
            (s.w.*command)();
            const QStringList warnings = CapturedLog::takeWarnings();
            return s.watcher.seen().last().title == "Внимание" && s.watcher.seen().last().text == text &&
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
        QVERIFY(call(&OPCUAWrapper::callAddNode, "Каналы;1;Channel_2;0;500;3;0;0;9;9600;8;1;0;0;0;0"));
        QVERIFY(attempt(nullptr, &MainWindow::on_add_channel_action_triggered, comNo(5),
                        "Добавление канала завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(root.size() == 2u && s.tree()->topLevelItem(0)->childCount() == 2);
        QVERIFY(MainWindowProbe::infoChannel(s.w).isEmpty());
        QVERIFY(call(&OPCUAWrapper::callAddNode, "Channel_0;2;Device_1"));
        QVERIFY(attempt(device0, &MainWindow::on_add_device_action_triggered, address(2),
                        "Добавление устройства завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(channel0->size() == 1u && s.row(channel0)->childCount() == 1);
        QVERIFY(call(&OPCUAWrapper::callAddNode, "Channel_0.Device_0;3;Medium;1;0"));
        QVERIFY(attempt(device0, &MainWindow::on_add_group_action_triggered, Session::rename("Medium"),
                        "Добавление группы завершилось неудачно, на сервере произошла ошибка"));
        QVERIFY(device0->size() == 1u && !MainWindowProbe::groups(s.w).count("Channel_0.Device_0.Medium"));

        // The group goes to the gateway before the local check: a name taken
        // only here leaves the gateway with a new, empty group of that name.
        QVERIFY(call(&OPCUAWrapper::callDeleteNode, "Channel_0.Device_0.Group_0"));
        QVERIFY(attempt(device0, &MainWindow::on_add_group_action_triggered, Session::rename("Group_0"),
                        "Добавление группы завершилось неудачно, обнаружен дубликат", false));
        QVERIFY(printed("Метод addNode: Good"));
        QVERIFY(device0->FindChildByName("Group_0") == group0 && group0->size() == 3u);

        // A refused edit keeps what the dialog wrote and the whole list.
        QVERIFY(call(&OPCUAWrapper::callDeleteNode, "Channel_0.Device_0"));
        QVERIFY(attempt(device0, &MainWindow::on_edit_action_triggered, address(9),
                        "Изменения устройства завершилось неудачно"));
        QVERIFY(printed("Метод editNode: BadNodeIdUnknown"));
        QCOMPARE(static_cast<CDeviceInfo*>(device0)->Addr, uint8_t(9));
        QCOMPARE(MainWindowProbe::infoDevice(s.w).size(), 9);
        MainWindowProbe::infoDevice(s.w).clear();

        // The same for a tag, which keeps its new name under the old key; refused deletes and
        // pastes leave the group as it was.
        s.select(group0);
        s.selectRows({0});
        s.accept(Session::rename("Renamed"));
        s.watcher.answer(QMessageBox::Ok);
        s.w.tag_edit_action_triggered();
        QCOMPARE(s.watcher.seen().last().text, QString("Изменение тега завершилось неудачно"));
        QVERIFY(!group0->FindChildByName("Renamed") && group0->begin()->second->GetName() == "Renamed");
        s.selectRows({1, 2});
        for (auto answer : {QMessageBox::Yes, QMessageBox::Ok})
            s.watcher.answer(answer);
        s.w.tag_delete_action_triggered();
        QCOMPARE(s.watcher.seen().last().text, QString("Удаление ноды завершилось неудачно"));
        s.selectRows({1});
        s.w.tag_copy_action_triggered();
        s.watcher.answer(QMessageBox::Ok);
        s.w.tag_paste_action_triggered();
        QCOMPARE(s.watcher.seen().last().text,
                 QString("Добавление тега завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(group0->size(), 3u);
        CapturedLog::takeWarnings();

        // A refused delete takes the row away and leaves the node.
        QVERIFY(attempt(group0, &MainWindow::on_delete_action_triggered, nullptr,
                        "Удаление ноды завершилось неудачно"));
        QVERIFY(printed("Метод deleteNode: BadNodeIdUnknown"));
        QCOMPARE(s.row(device0)->childCount(), 0);
        QVERIFY(device0->FindChildByName("Group_0") == group0 &&
                MainWindowProbe::groups(s.w).count("Channel_0.Device_0.Group_0"));

        // The channel edit stops the exchange, is refused, and the exchange
        // stays stopped: nothing starts it again.
        QVERIFY(call(&OPCUAWrapper::callDeleteNode, "Channel_1"));
        QVERIFY(attempt(channel1, &MainWindow::on_edit_action_triggered, Session::rename("Шлюз"),
                        "Изменения канала завершилось неудачно"));
        const QString edit = printedSince(gateway, mark);
        QVERIFY2(edit.contains("Вызов метода stopExchange: emul") &&
                     edit.contains("Метод editNode: BadNodeIdUnknown") && !edit.contains("startExchange"),
                 qPrintable(edit));
        QVERIFY(!MainWindowProbe::client(s.w)->exchangeRunning);
        QCOMPARE(channel1->GetName(), std::string("Шлюз"));
        QCOMPARE(s.row(channel1)->text(0), QString("Channel_1"));
    }
};

QTEST_MAIN(ConnectedTest)
#include "tst_connected.moc"
