#include "app/mainwindow.h"
#include "config/scrambler.h"
#include "dialogs/dialogaddusers.h"
#include "dialogs/stardelegate.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "tests/common/testfiles.h"

#include <QtTest>
#include <QtWidgets>

namespace {

const QString kTree =
    "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n;Channel_0;TCP-соединение;MODBUS TCP;500;3;0;"
    "192.168.0.10;502;5000\nINIFILE\n\n[options]\nport = 4840\n";
const QString kBlock = kTree + "USERS\n\n[users]\nusers = ";

// Sets a line edit, a text edit or, with any text, ticks a check box.
void set(QWidget* d, const QString& field, const QString& value)
{
    if (auto* line = d->findChild<QLineEdit*>(field))
        line->setText(value);
    else if (auto* text = d->findChild<QTextEdit*>(field))
        text->setPlainText(value);
    else
        requireChild<QCheckBox>(d, qPrintable(field))->setChecked(!value.isEmpty());
}

QTableWidget* table(QWidget& d)
{
    return requireChild<QTableWidget>(&d, "tableWidget_users");
}

// The clear text behind the users header, then "login=password" per row.
QString state(QWidget& d, const QString& path)
{
    QString text;
    CScrambler::ReadFile(path, text);
    QStringList rows;
    for (int r = 0; r < table(d)->rowCount(); ++r)
        rows << table(d)->item(r, 0)->text() + "=" + table(d)->item(r, 1)->text();
    return (text.startsWith(kBlock) ? text.mid(kBlock.size()) : "<" + text + ">") + " | " + rows.join(' ');
}

void addUser(QWidget& d, const QString& login, const QString& password)
{
    set(&d, "lineEdit_login", login);
    set(&d, "lineEdit_password", password);
    requireChild<QPushButton>(&d, "pushButton_add_user")->click();
}

} // namespace

// The certificate form and command, whose tool is a stand-in script beside the program that records
// its arguments, and the users block of the configuration.
class TstSecurity : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

    // The stand-in lies beside this test program, in a folder of its own, where
    // the command looks for the tool; it writes into the working directory.
    void placeTool(int code)
    {
        const QString tool =
            writeFile(QCoreApplication::applicationDirPath() + "/generate_certificate",
                      QString("#!/bin/sh\nfor a in \"$@\"; do echo \"$a\"; done > args.txt\nexit %1\n")
                          .arg(code)
                          .toUtf8());
        QVERIFY(QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner));
    }

    QStringList recordedArguments()
    {
        return QString::fromUtf8(readFile(m_work.filePath("args.txt"))).split('\n', Qt::SkipEmptyParts);
    }

    // Walks the certificate form through its checks and fills it; a failure leaves it open.
    void walkCertificateForm(QWidget* d, ModalWatcher& watcher)
    {
        const QString folder = m_work.path();
        auto* country = requireChild<QLineEdit>(d, "lineEdit_country_name");
        QTest::keyClicks(country, "S");
        QCOMPARE(country->text(), QString("RU"));
        // What a folder chooser answers goes into its field, an empty answer too.
        watcher.answerFile(folder);
        requireChild<QPushButton>(d, "pushButton_fileDialogCert")->click();
        QCOMPARE(QDir(requireChild<QLineEdit>(d, "lineEdit_outputCatalogCert")->text()), QDir(folder));
        set(d, "lineEdit_outputCatalogKey", "x");
        watcher.answerFile(QString());
        requireChild<QPushButton>(d, "pushButton_fileDialogKey")->click();
        QCOMPARE(requireChild<QLineEdit>(d, "lineEdit_outputCatalogKey")->text(), QString());

        // Each step mends the last complaint and meets the next one.
        const auto walk = [&](std::initializer_list<std::tuple<const char*, QString, QString>> steps) {
            for (const auto& [field, value, text] : steps) {
                set(d, field, value);
                watcher.answer(QMessageBox::Ok);
                requireChild<QPushButton>(d, "pushButton_ok")->click();
                QVERIFY2(d->isVisible(), field);
                QCOMPARE(watcher.seen().last().title + ": " + watcher.seen().last().text,
                         "Внимание: " + text);
            }
        };
        set(d, "lineEdit_password", "secret");
        walk({{"lineEdit_common_name", "", "Имя не заполнено"},
              {"lineEdit_common_name", "OPCUA@my host", "Имя организации не заполнено"},
              {"lineEdit_organization_name", "Тарн", "Домены или IP адреса не заполнено"},
              {"textEdit_domains", "localhost,gw", "Путь до каталога с сертификатами не заполнено"},
              {"lineEdit_outputCatalogKey", VELMORA_BIN_DIR "/generate_certificate",
               "Путь до каталога с сертификатами не являеться путем"}});
        // The check box opens both password fields, which then have to match.
        set(d, "lineEdit_outputCatalogKey", folder + "/");
        QVERIFY(!requireChild<QLineEdit>(d, "lineEdit_password")->isEnabled());
        walk({{"checkBox_usePassword", "on", "Пароль не заполнено"},
              {"lineEdit_passwordRepeat", "other", "Пароли не совпадают"}});
        QVERIFY(requireChild<QLineEdit>(d, "lineEdit_passwordRepeat")->isEnabled());
        set(d, "lineEdit_passwordRepeat", "secret");
        const std::pair<const char*, QString> rest[] = {{"lineEdit_organization_unit", "АСУ"},
                                                        {"lineEdit_locality_name", "Обл"},
                                                        {"lineEdit_city_name", "Москва"},
                                                        {"lineEdit_outputCatalogCert", folder}};
        for (const auto& [name, text] : rest)
            set(d, name, text);
        watcher.answer(QMessageBox::Ok); // the success box
        requireChild<QPushButton>(d, "pushButton_ok")->click();
    }

private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(m_work.path())); }

    void certificateFormAndCommandLine()
    {
        placeTool(0);
        ModalWatcher watcher;
        MainWindow w;
        QAction* command = w.findChild<QAction*>("create_certiifcates");
        const QString folder = m_work.path();
        watcher.answer([&](QWidget* d) {
            walkCertificateForm(d, watcher);
            if (d->isVisible())
                qobject_cast<QDialog*>(d)->reject();
        });
        command->trigger();
        QCOMPARE(watcher.seen().last().text, QString("Сертификаты успешно созданы!"));
        // Domains alone pass; values go unquoted: the blank in the name splits it, and the empty
        // address list is a word of its own; the password is no argument; five years are 5 * 365 days.
        QCOMPARE(recordedArguments(),
                 QStringList({"-CN=OPCUA@my", "host", "-O=Тарн", "-OU=АСУ", "-ST=Обл", "-L=Москва", "-C=RU",
                              "-DNS=localhost,gw", "-IP=", "-size=2048", "-alg=Sha256", "-val=1825",
                              "-der=" + folder, "-pem=" + folder + "/"}));

        // A validity in weeks counts seven days each; the tool's failure code is shown.
        placeTool(7);
        watcher.answer([&](QWidget* d) {
            for (const char* name : {"lineEdit_common_name", "lineEdit_organization_name", "textEdit_domains",
                                     "lineEdit_outputCatalogCert", "lineEdit_outputCatalogKey"})
                set(d, name, folder);
            requireChild<QComboBox>(d, "comboBox_validate")->setCurrentIndex(1);
            requireChild<QPushButton>(d, "pushButton_ok")->click();
        });
        watcher.answer(QMessageBox::Ok);
        command->trigger();
        QCOMPARE(watcher.seen().last().title + ": " + watcher.seen().last().text,
                 QString("Ошибка: При создании сертификатов произошла ошибка!\nКод ошибки - 7"));
        QVERIFY(recordedArguments().contains("-val=7"));
    }

    void usersBlock()
    {
        ModalWatcher watcher;
        MainWindow w;
        watcher.answer(QMessageBox::Ok);
        w.findChild<QAction*>("action_addUsers")->trigger();
        QCOMPARE(watcher.seen().last().text, QString("Не открыта конфигурация сервера, операция прервана"));

        const QString path = m_work.filePath("gateway.cfg");
        QVERIFY(CScrambler::WriteFile(path, kTree));
        MainWindowProbe::configPath(w) = path;
        const QString added = "operator;пароль1;guest;;operator;x; | operator=пароль1 guest= operator=x";
        // The command's dialog works on the open file. The block goes behind the file; an empty
        // password is allowed, a known login isn't noticed, and an empty login is refused.
        watcher.answer([&](QWidget* d) {
            addUser(*d, "operator", "пароль1");
            addUser(*d, "guest", "");
            addUser(*d, "operator", "x");
            watcher.answer(QMessageBox::Ok);
            addUser(*d, "", "1");
            QCOMPARE(watcher.seen().last().title + ": " + watcher.seen().last().text,
                     QString("Внимание: Заполните поле логин"));
            QCOMPARE(state(*d, path), added);
            // Only the password column hides its values, and every length looks the same.
            auto* stars = qobject_cast<StarDelegate*>(table(*d)->itemDelegateForColumn(1));
            QVERIFY(stars && !table(*d)->itemDelegateForColumn(0));
            for (const QString& password : {QString(60, 'x'), QString()})
                QCOMPARE(stars->displayText(password, QLocale()), QString("******"));
            d->close();
        });
        w.findChild<QAction*>("action_addUsers")->trigger();

        // A new dialog reads the block back.
        DialogAddUsers again(path);
        QCOMPARE(state(again, path), added);
        // A missing file is never created.
        DialogAddUsers none(m_work.filePath("none.cfg"));
        addUser(none, "a", "1");
        QVERIFY(!QFile::exists(m_work.filePath("none.cfg")));

        // Deleting searches the row's password among all the parts and takes the
        // part behind the hit with it.
        QVERIFY(CScrambler::WriteFile(path, kBlock + "7;x;b;7;c;2;"));
        DialogAddUsers d(path);
        auto remove = [&](int row) {
            table(d)->setCurrentCell(row, 0);
            requireChild<QPushButton>(&d, "pushButton_delete_user")->click();
            return state(d, path);
        };
        QCOMPARE(remove(-1), QString("7;x;b;7;c;2; | 7=x b=7 c=2")); // no current row
        // Logins are compared too, and the first hit wins whichever row was chosen.
        QCOMPARE(remove(1), QString("b;7;c;2; | b=7 c=2"));
        // b's password goes with c's login: b is left with c's password.
        QCOMPARE(remove(0), QString("b;2; | b=2"));
        // The last row loses its password and the empty tail.
        QCOMPARE(remove(0), QString("b | "));
    }
};

QTEST_MAIN(TstSecurity)
#include "tst_security.moc"
