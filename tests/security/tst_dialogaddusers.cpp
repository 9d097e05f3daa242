#include "config/scrambler.h"
#include "dialogs/dialogaddusers.h"
#include "dialogs/stardelegate.h"
#include "tests/common/modalwatcher.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kTree =
    "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n;Channel_0;TCP-соединение;MODBUS TCP;500;3;0;"
    "192.168.0.10;502;5000\nINIFILE\n\n[options]\nport = 4840\n";
const QString kBlock = kTree + "USERS\n\n[users]\nusers = ";

QTableWidget* table(QWidget& d)
{
    return d.findChild<QTableWidget*>("tableWidget_users");
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
    d.findChild<QLineEdit*>("lineEdit_login")->setText(login);
    d.findChild<QLineEdit*>("lineEdit_password")->setText(password);
    d.findChild<QPushButton*>("pushButton_add_user")->click();
}

} // namespace

class TstDialogAddUsers : public QObject
{
    Q_OBJECT
private slots:
    void addAndDelete();
};

void TstDialogAddUsers::addAndDelete()
{
    QTemporaryDir dir;
    ModalWatcher watcher;
    const QString path = dir.filePath("gateway.cfg");
    QVERIFY(CScrambler::WriteFile(path, kTree));
    const QString added = "operator;пароль1;guest;;operator;x; | operator=пароль1 guest= operator=x";
    {
        // The block goes behind the file; an empty password is allowed, and a
        // known login isn't noticed; an empty login is refused.
        DialogAddUsers d(path);
        addUser(d, "operator", "пароль1");
        addUser(d, "guest", "");
        addUser(d, "operator", "x");
        watcher.answer(QMessageBox::Ok);
        addUser(d, "", "1");
        QVERIFY(watcher.seen().size() == 1 && watcher.seen().at(0).title == "Внимание");
        QCOMPARE(watcher.seen().at(0).text, QString("Заполните поле логин"));
        QCOMPARE(state(d, path), added);
        QCOMPARE(table(d)->item(2, 1)->flags(), Qt::ItemIsSelectable | Qt::ItemIsEnabled);
        // Only the password column hides its values, and every length looks the same.
        auto* stars = qobject_cast<StarDelegate*>(table(d)->itemDelegateForColumn(1));
        QVERIFY(stars && !table(d)->itemDelegateForColumn(0));
        for (const QString& password : {QString(60, 'x'), QString()})
            QCOMPARE(stars->displayText(password, QLocale()), QString("******"));
    }
    // The block is scrambled with the rest of the file, and a new dialog reads it back.
    QFile raw(path);
    QVERIFY(raw.open(QIODevice::ReadOnly) && !raw.readAll().contains("operator"));
    DialogAddUsers again(path);
    QCOMPARE(state(again, path), added);
    // A missing file is never created.
    DialogAddUsers none(dir.filePath("none.cfg"));
    addUser(none, "a", "1");
    QVERIFY(!QFile::exists(dir.filePath("none.cfg")));

    // Deleting searches the row's password among all the parts and takes the
    // part behind the hit with it.
    QVERIFY(CScrambler::WriteFile(path, kBlock + "7;x;b;7;c;2;"));
    DialogAddUsers d(path);
    auto remove = [&](int row) {
        table(d)->setCurrentCell(row, 0);
        d.findChild<QPushButton*>("pushButton_delete_user")->click();
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

QTEST_MAIN(TstDialogAddUsers)
#include "tst_dialogaddusers.moc"
