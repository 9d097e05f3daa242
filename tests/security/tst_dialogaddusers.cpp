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

QString clearText(const QString& path)
{
    QString text;
    return CScrambler::ReadFile(path, text) ? text : QString("<unreadable>");
}

QTableWidget* table(QWidget& d)
{
    return d.findChild<QTableWidget*>("tableWidget_users");
}

// "login=password" per row, from the items themselves.
QStringList rows(QWidget& d)
{
    QStringList out;
    for (int r = 0; r < table(d)->rowCount(); ++r)
        out << table(d)->item(r, 0)->text() + "=" + table(d)->item(r, 1)->text();
    return out;
}

void addUser(QWidget& d, const QString& login, const QString& password)
{
    d.findChild<QLineEdit*>("lineEdit_login")->setText(login);
    d.findChild<QLineEdit*>("lineEdit_password")->setText(password);
    d.findChild<QPushButton*>("pushButton_add_user")->click();
}

// Deletes the row in a fresh dialog on a file holding the given list.
QString afterDeleting(const QString& path, const QString& list, int row)
{
    CScrambler::WriteFile(path, kBlock + list);
    DialogAddUsers d(path);
    table(d)->setCurrentCell(row, 0);
    d.findChild<QPushButton*>("pushButton_delete_user")->click();
    return clearText(path).mid(kBlock.size()) + " | " + rows(d).join(' ');
}

} // namespace

class TstDialogAddUsers : public QObject
{
    Q_OBJECT
private slots:
    void addingWritesTheBlockBehindTheFile();
    void deleteTakesThePasswordAndWhatFollows();
};

void TstDialogAddUsers::addingWritesTheBlockBehindTheFile()
{
    QTemporaryDir dir;
    ModalWatcher watcher;
    const QString path = dir.filePath("gateway.cfg");
    QVERIFY(CScrambler::WriteFile(path, kTree));
    {
        // An empty password is allowed, and a known login isn't noticed;
        // an empty login is refused.
        DialogAddUsers d(path);
        addUser(d, "operator", "пароль1");
        addUser(d, "guest", "");
        addUser(d, "operator", "x");
        watcher.answer(QMessageBox::Ok);
        addUser(d, "", "1");
        QVERIFY(watcher.seen().size() == 1 && watcher.seen().at(0).title == "Внимание");
        QCOMPARE(watcher.seen().at(0).text, QString("Заполните поле логин"));
        QCOMPARE(clearText(path), kBlock + "operator;пароль1;guest;;operator;x;");
        QCOMPARE(rows(d), QStringList({"operator=пароль1", "guest=", "operator=x"}));
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
    QCOMPARE(rows(again), QStringList({"operator=пароль1", "guest=", "operator=x"}));
    // A missing file is never created.
    DialogAddUsers none(dir.filePath("none.cfg"));
    addUser(none, "a", "1");
    QVERIFY(!QFile::exists(dir.filePath("none.cfg")));
}

void TstDialogAddUsers::deleteTakesThePasswordAndWhatFollows()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("gateway.cfg");
    // The row's password is searched, and the part behind it (the next login)
    // goes too: deleting a leaves a with b's password.
    QCOMPARE(afterDeleting(path, "a;1;b;2;", 0), QString("a;2; | a=2"));
    // The last row loses its password and the empty tail; one row is left.
    QCOMPARE(afterDeleting(path, "a;1;b;2;", 1), QString("a;1;b | a=1"));
    // Logins are compared too, and the first hit wins whichever row was chosen.
    QCOMPARE(afterDeleting(path, "7;x;b;7;c;7;", 2), QString("b;7;c;7; | b=7 c=7"));
    // With no current row nothing happens.
    QCOMPARE(afterDeleting(path, "a;1;", -1), QString("a;1; | a=1"));
}

QTEST_MAIN(TstDialogAddUsers)
#include "tst_dialogaddusers.moc"
