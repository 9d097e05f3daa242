#include "app/mainwindow.h"
#include "config/runparameters.h"
#include "config/scrambler.h"
#include "dialogs/runpreparedialog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QtTest>
#include <QtWidgets>

// Run parameters in the configuration's tail, the start dialog's checks and
// the gateway commands that need no gateway.
class RunControlTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    const QString m_tree = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                           ";Канал;TCP-соединение;MODBUS TCP;500;3;0;127.0.0.1;502;5000\n";
    const QString m_users = "USERS\n\n[users]\nusers = a;1;b;2;";

    QString writeCfg(const QString& name, const QString& clear)
    {
        CScrambler::WriteFile(m_dir.filePath(name), clear);
        return m_dir.filePath(name);
    }

    static QString readCfg(const QString& path)
    {
        QString clear;
        CScrambler::ReadFile(path, clear);
        return clear;
    }

    static QList<QString> args(const QString& path, const QString& port = "4841")
    {
        return {path, port, "info", "true", "", "", ""};
    }

private slots:
    void tailForEachCut()
    {
        // No file to read: the block alone.
        const QString fresh = m_dir.filePath("fresh.cfg");
        QCOMPARE(CRunParameters::Save(args(fresh)), int(CRunParameters::Saved));
        const QString block = "INIFILE\n\n[options]\nport = 4841\nlog = info\nallowanonimus = true\n"
                              "derFile = \npemFile = \ntrustFolder = \n";
        QCOMPARE(readCfg(fresh), block);

        // Neither, old parameters, users, both: new parameters replace the old, users stay behind.
        const QString oldIni = CRunParameters::Block(args("x", "1"));
        const QStringList tails = {"", oldIni, m_users, oldIni + m_users};
        for (int i = 0; i < tails.size(); ++i) {
            const QString path = writeCfg(QString("cut%1.cfg").arg(i), m_tree + tails[i]);
            QCOMPARE(CRunParameters::Save(args(path)), int(CRunParameters::Saved));
            QCOMPARE(readCfg(path), m_tree + block + (i >= 2 ? m_users : ""));
        }

        // Users in front of the parameters: the file is left as it was. A folder can't be written.
        const QString reversed = writeCfg("reversed.cfg", m_tree + m_users + "\n" + oldIni);
        QCOMPARE(CRunParameters::Save(args(reversed)), int(CRunParameters::TailOutOfOrder));
        QCOMPARE(readCfg(reversed), m_tree + m_users + "\n" + oldIni);
        QCOMPARE(CRunParameters::Save(args(m_dir.path())), int(CRunParameters::NotWritten));
    }

    void dialogSavesOnceAndKeepsUsers()
    {
        ModalWatcher watcher;
        const QString path = writeCfg("dialog.cfg", m_tree + m_users);
        RunPrepareDialog dialog;
        dialog.Init(path, "", "", "");
        dialog.show();
        dialog.findChild<QComboBox*>("logLevelBox")->setCurrentIndex(6);
        watcher.answer(QMessageBox::Ok);
        dialog.findChild<QPushButton*>("pushButton_save")->click();
        QCOMPARE(watcher.seen().last().text, QString("Cохранении файла конфигурации прошло успешно"));

        // A second press with other values: the list only grows, so the first values stay.
        dialog.findChild<QSpinBox*>("portBox")->setValue(5000);
        watcher.answer(QMessageBox::Ok);
        dialog.findChild<QPushButton*>("pushButton_save")->click();
        const QString clear = readCfg(path);
        QVERIFY(clear.count("INIFILE") == 1 && clear.contains("port = 4840\nlog = verbose\n"));
        QVERIFY(clear.startsWith(m_tree) && clear.endsWith(m_users) && dialog.parameters().size() == 14);
    }

    void acceptChecks()
    {
        ModalWatcher watcher;
        const QString cfg = writeCfg("accept.cfg", m_tree);
        const QString cert = m_dir.filePath("server_cert.der");
        QFile(cert).open(QIODevice::WriteOnly);

        // Config, certificate, key, trust folder, authentication by certificate; the refusal.
        const QList<QStringList> refused = {
            {"", "", "", "", "", "Заполните поле файл конфигурации!"},
            {m_dir.filePath("missing.cfg"), "", "", "", "", "По указанному пути файл конфигурации не найден"},
            {cfg, cert, "k.pem", "", "", "Каталог доверенных сертификатов клиентов не заполнен!"},
            {cfg, cert, "k.pem", cfg, "", "Каталог доверенных сертификатов не являеться каталогом"},
            {cfg, cert, "", "", "yes",
             "Выбрана аутентификация по сертификату, но информация по сертификатам не заполнена!"},
        };
        for (const QStringList& c : refused) {
            RunPrepareDialog dialog;
            dialog.Init(c[0], c[1], c[2], c[3]);
            dialog.findChild<QRadioButton*>("radioButton_authCertificate")->setChecked(!c[4].isEmpty());
            watcher.answer(QMessageBox::Ok);
            dialog.accept();
            QCOMPARE(watcher.seen().last().text, c[5]);
            QVERIFY(dialog.result() == QDialog::Rejected && dialog.parameters().isEmpty());
        }

        // Anonymous with no certificates: accepted, nothing copied, no signal.
        RunPrepareDialog plain;
        QSignalSpy plainRun(&plain, &RunPrepareDialog::signalRunServer);
        plain.Init(cfg, "", "", "");
        plain.accept();
        QVERIFY(plain.result() == QDialog::Accepted && plainRun.isEmpty());
        QCOMPARE(plain.parameters(), QList<QString>({cfg, "4840", "warning", "true", "", "", ""}));

        // With certificates: the trust folder is made and holds the server's certificate.
        RunPrepareDialog secured;
        QSignalSpy run(&secured, &RunPrepareDialog::signalRunServer);
        const QString trust = m_dir.filePath("trust/clients");
        secured.Init(cfg, cert, "key.pem", trust);
        secured.accept();
        QVERIFY(secured.result() == QDialog::Accepted && QFile::exists(trust + "/server_cert.der"));
        QCOMPARE(run.value(0), QVariantList({trust, cert, "key.pem"}));
    }

    void gatewayCommandsWithoutGateway()
    {
        // This test runs from a folder with no server/server beside it: the start
        // says so before the configuration is touched.
        ModalWatcher watcher;
        MainWindow w;
        const QString path = writeCfg("untouched.cfg", m_tree);
        MainWindowProbe::configPath(w) = path;
        watcher.answer([](QWidget* dialog) { QMetaObject::invokeMethod(dialog, "accept"); });
        watcher.answer(QMessageBox::Ok);
        w.on_run_server_action_triggered();
        QCOMPARE(watcher.seen()[1].text,
                 QString("При запуске сервера произошла ошибка! Файл сервера не найден"));
        QCOMPARE(readCfg(path), m_tree);
        for (auto command :
             {&MainWindow::on_stop_server_action_triggered, &MainWindow::on_showOutput_action_triggered}) {
            watcher.answer(QMessageBox::Ok);
            (w.*command)();
        }
        QVERIFY(watcher.seen()[2].text == "Сервер уже остановлен" &&
                watcher.seen()[3].text == "Сервер не запущен!");
    }
};

QTEST_MAIN(RunControlTest)
#include "tst_runcontrol.moc"
