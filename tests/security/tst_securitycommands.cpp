#include "app/mainwindow.h"
#include "config/scrambler.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

// The two security commands of the main window. The certificate tool is a
// stand-in script in the working directory that records its arguments.
class TstSecurityCommands : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

    void placeTool(int code)
    {
        QFile tool(m_work.filePath("generate_certificate"));
        QVERIFY(tool.open(QIODevice::WriteOnly | QIODevice::Truncate));
        tool.write(QString("#!/bin/sh\nfor a in \"$@\"; do echo \"$a\"; done > args.txt\nexit %1\n")
                       .arg(code)
                       .toUtf8());
        tool.close();
        tool.setPermissions(tool.permissions() | QFile::ExeOwner);
    }

    // Runs the menu command with a filled form; the last box seen is returned.
    ModalWatcher::Seen runCommand(MainWindow& w)
    {
        ModalWatcher watcher;
        const QString folder = m_work.path();
        watcher.answer([folder](QWidget* d) {
            const std::pair<const char*, QString> fields[] = {
                {"common_name", "OPCUA@my host"},  {"organization_name", "Тарн"},
                {"organization_unit", "АСУ"},      {"locality_name", "Московская"},
                {"city_name", "Москва"},           {"outputCatalogCert", folder},
                {"outputCatalogKey", folder + "/"}};
            for (const auto& [name, text] : fields)
                d->findChild<QLineEdit*>(QString("lineEdit_") + name)->setText(text);
            d->findChild<QTextEdit*>("textEdit_domains")->setPlainText("localhost,gw");
            d->findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(2);
            d->findChild<QPushButton*>("pushButton_ok")->click();
        });
        watcher.answer(QMessageBox::Ok);
        w.findChild<QAction*>("create_certiifcates")->trigger();
        return watcher.seen().size() == 2 ? watcher.seen().at(1) : ModalWatcher::Seen{};
    }

private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(m_work.path())); }

    void certificateCommandLineAndFailures()
    {
        placeTool(0);
        MainWindow w;
        {
            // A cancelled form runs nothing.
            ModalWatcher watcher;
            watcher.answer([](QWidget* d) { d->findChild<QPushButton*>("pushButton_cancel")->click(); });
            w.findChild<QAction*>("create_certiifcates")->trigger();
            QVERIFY(watcher.seen().size() == 1 && !QFile::exists(m_work.filePath("args.txt")));
        }

        ModalWatcher::Seen box = runCommand(w);
        QVERIFY(box.title == "Успешно" && box.text == "Сертификаты успешно созданы!");
        // Values go unquoted: the blank in the name splits it, and the empty
        // address list is a word of its own.
        QFile args(m_work.filePath("args.txt"));
        QVERIFY(args.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(args.readAll()).split('\n', Qt::SkipEmptyParts),
                 QStringList({"-CN=OPCUA@my", "host", "-O=Тарн", "-OU=АСУ", "-ST=Московская", "-L=Москва",
                              "-C=RU", "-DNS=localhost,gw", "-IP=", "-size=2048", "-alg=Sha256", "-val=30",
                              "-der=" + m_work.path(), "-pem=" + m_work.path() + "/"}));

        placeTool(7);
        box = runCommand(w);
        QCOMPARE(box.title, QString("Ошибка"));
        QCOMPARE(box.text, QString("При создании сертификатов произошла ошибка!\nКод ошибки - 7"));
    }

    void usersNeedAnOpenConfiguration()
    {
        MainWindow w;
        ModalWatcher watcher;
        watcher.answer(QMessageBox::Ok);
        w.findChild<QAction*>("action_addUsers")->trigger();
        QVERIFY(watcher.seen().size() == 1 && watcher.seen().at(0).title == "Внимание");
        QCOMPARE(watcher.seen().at(0).text, QString("Не открыта конфигурация сервера, операция прервана"));

        // With a configuration the dialog works on that file.
        const QString path = m_work.filePath("gateway.cfg");
        QVERIFY(CScrambler::WriteFile(path, "INIFILE\n\nUSERS\n\n[users]\nusers = a;1;"));
        MainWindowProbe::configPath(w) = path;
        int rows = -1;
        watcher.answer([&rows](QWidget* d) {
            rows = d->findChild<QTableWidget*>("tableWidget_users")->rowCount();
            d->close();
        });
        w.findChild<QAction*>("action_addUsers")->trigger();
        QCOMPARE(rows, 1);
    }
};

QTEST_MAIN(TstSecurityCommands)
#include "tst_securitycommands.moc"
