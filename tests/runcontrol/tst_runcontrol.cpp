#include "app/mainwindow.h"
#include "config/configtail.h"
#include "config/runparameters.h"
#include "config/scrambler.h"
#include "dialogs/runpreparedialog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QtTest>

// Run parameters in the configuration's tail, the start dialog's checks and
// the gateway commands that need no gateway.
class RunControlTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    const QString m_tree = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                           ";Канал;TCP-соединение;MODBUS TCP;500;3;0;127.0.0.1;502;5000\n";
    const QString m_users = "USERS\n\n[users]\nusers = a;1;b;2;";

    QString writeCfg(const QString& name, const QString& clear)
    {
        const QString path = m_dir.filePath(name);
        CScrambler::WriteFile(path, clear);
        return path;
    }

    static QString readCfg(const QString& path)
    {
        QString clear;
        CScrambler::ReadFile(path, clear);
        return clear;
    }

    static QList<QString> args(const QString& path, const QString& port = "4841", const QString& log = "info")
    {
        return {path, port, log, "true", "", "", ""};
    }

private slots:
    void tailForEachCut()
    {
        const QString block = CRunParameters::Block(args("x"));
        QVERIFY(block.startsWith("INIFILE\n\n[options]\nport = 4841\nlog = info\nallowanonimus = true\n"));
        QVERIFY(block.endsWith("derFile = \npemFile = \ntrustFolder = \n"));

        const QString oldIni = CRunParameters::Block(args("x", "1", "none"));
        struct Case
        {
            const char* name;
            QString before;
            QString after;
        };
        const Case cases[] = {
            {"neither", m_tree, m_tree + block},
            {"parameters only", m_tree + oldIni, m_tree + block},
            {"users only", m_tree + m_users, m_tree + block + m_users},
            {"both", m_tree + oldIni + m_users, m_tree + block + m_users},
        };
        for (const Case& c : cases) {
            const QString path = writeCfg(QString(c.name) + ".cfg", c.before);
            QCOMPARE(CRunParameters::Save(args(path)), int(CRunParameters::Saved));
            QCOMPARE(readCfg(path), c.after);
        }

        // Users in front of the parameters: the file is left as it was.
        const QString reversed = writeCfg("reversed.cfg", m_tree + m_users + "\n" + oldIni);
        QCOMPARE(CRunParameters::Save(args(reversed)), int(CRunParameters::TailOutOfOrder));
        QCOMPARE(readCfg(reversed), m_tree + m_users + "\n" + oldIni);

        // No file to read: the block alone. A folder can't be written.
        const QString fresh = m_dir.filePath("fresh.cfg");
        QCOMPARE(CRunParameters::Save(args(fresh)), int(CRunParameters::Saved));
        QCOMPARE(readCfg(fresh), block);
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
        QCOMPARE(clear.count("INIFILE"), 1);
        QVERIFY(clear.contains("port = 4840\nlog = verbose\nallowanonimus = true\n"));
        QVERIFY(clear.endsWith(m_users));
        QVERIFY(clear.startsWith(m_tree));
        QCOMPARE(dialog.parameters().size(), 14);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void acceptChecks()
    {
        ModalWatcher watcher;
        const QString cfg = writeCfg("accept.cfg", m_tree);
        const QString cert = m_dir.filePath("server_cert.der");
        QFile(cert).open(QIODevice::WriteOnly);
        const QString notFolder = cfg;

        struct Case
        {
            QString config, cert, key, trust;
            bool byCertificate;
            QString text;
        };
        const Case refused[] = {
            {"", "", "", "", false, "Заполните поле файл конфигурации!"},
            {m_dir.filePath("missing.cfg"), "", "", "", false, "По указанному пути файл конфигурации не найден"},
            {cfg, cert, "k.pem", "", false, "Каталог доверенных сертификатов клиентов не заполнен!"},
            {cfg, cert, "k.pem", notFolder, false, "Каталог доверенных сертификатов не являеться каталогом"},
            {cfg, cert, "", "", true,
             "Выбрана аутентификация по сертификату, но информация по сертификатам не заполнена!"},
        };
        for (const Case& c : refused) {
            RunPrepareDialog dialog;
            dialog.Init(c.config, c.cert, c.key, c.trust);
            dialog.findChild<QRadioButton*>("radioButton_authCertificate")->setChecked(c.byCertificate);
            watcher.answer(QMessageBox::Ok);
            dialog.accept();
            QCOMPARE(watcher.seen().last().text, c.text);
            QCOMPARE(dialog.result(), int(QDialog::Rejected));
            QVERIFY(dialog.parameters().isEmpty());
        }

        // Anonymous with no certificates: accepted, nothing copied, no signal.
        {
            RunPrepareDialog dialog;
            QSignalSpy run(&dialog, &RunPrepareDialog::signalRunServer);
            dialog.Init(cfg, "", "", "");
            dialog.accept();
            QCOMPARE(dialog.result(), int(QDialog::Accepted));
            QCOMPARE(run.count(), 0);
            QCOMPARE(dialog.parameters(), QList<QString>({cfg, "4840", "warning", "true", "", "", ""}));
            QCOMPARE(dialog.port(), QString("4840"));
        }
        // With certificates: the trust folder is made and holds the server's certificate.
        {
            RunPrepareDialog dialog;
            QSignalSpy run(&dialog, &RunPrepareDialog::signalRunServer);
            const QString trust = m_dir.filePath("trust/clients");
            dialog.Init(cfg, cert, "key.pem", trust);
            dialog.accept();
            QCOMPARE(dialog.result(), int(QDialog::Accepted));
            QCOMPARE(run.count(), 1);
            QCOMPARE(run[0], QVariantList({trust, cert, "key.pem"}));
            QVERIFY(QFile::exists(trust + "/server_cert.der"));
        }
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void missingGatewayIsToldBeforeTheFileIsTouched()
    {
        // This test runs from a folder with no server/server beside it.
        ModalWatcher watcher;
        MainWindow w;
        const QString path = writeCfg("untouched.cfg", m_tree);
        const QByteArray before = [&] {
            QFile f(path);
            f.open(QIODevice::ReadOnly);
            return f.readAll();
        }();
        MainWindowProbe::configPath(w) = path;
        watcher.answer([](QWidget* dialog) { QMetaObject::invokeMethod(dialog, "accept"); });
        watcher.answer(QMessageBox::Ok);
        w.on_run_server_action_triggered();
        QCOMPARE(watcher.seen().size(), 2);
        QCOMPARE(watcher.seen()[0].title, QString("Запуск сервера"));
        QCOMPARE(watcher.seen()[1].text, QString("При запуске сервера произошла ошибка! Файл сервера не найден"));
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), before);
    }

    void gatewayCommandsWithoutGateway()
    {
        ModalWatcher watcher;
        MainWindow w;
        watcher.answer(QMessageBox::Ok);
        w.on_stop_server_action_triggered();
        watcher.answer(QMessageBox::Ok);
        w.on_showOutput_action_triggered();
        QCOMPARE(watcher.seen().size(), 2);
        QCOMPARE(watcher.seen()[0].text, QString("Сервер уже остановлен"));
        QCOMPARE(watcher.seen()[1].text, QString("Сервер не запущен!"));
        QCOMPARE(watcher.seen()[1].title, QString("Ошибка"));
    }
};

QTEST_MAIN(RunControlTest)
#include "tst_runcontrol.moc"
