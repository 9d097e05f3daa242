#include "config/scrambler.h"
#include "dialogs/dialogaddusers.h"
#include "dialogs/stardelegate.h"
#include "tests/common/modalwatcher.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kTree =
    "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n;Channel_0;TCP-соединение;MODBUS TCP;500;3;0;"
    "192.168.0.10;502;5000\nINIFILE\n\n[options]\nport = 4840\n";

QString clearText(const QString& path)
{
    QString text;
    return CScrambler::ReadFile(path, text) ? text : QString("<unreadable>");
}

QTableWidget* table(QWidget& d)
{
    return d.findChild<QTableWidget*>("tableWidget_users");
}

QStringList rows(QWidget& d)
{
    QStringList out;
    QTableWidget* t = table(d);
    for (int r = 0; r < t->rowCount(); ++r)
        out << t->item(r, 0)->text() + "=" + t->item(r, 1)->text();
    return out;
}

void addUser(QWidget& d, const QString& login, const QString& password)
{
    d.findChild<QLineEdit*>("lineEdit_login")->setText(login);
    d.findChild<QLineEdit*>("lineEdit_password")->setText(password);
    d.findChild<QPushButton*>("pushButton_add_user")->click();
}

void deleteRow(QWidget& d, int row)
{
    table(d)->setCurrentCell(row, 0);
    d.findChild<QPushButton*>("pushButton_delete_user")->click();
}

} // namespace

class TstDialogAddUsers : public QObject
{
    Q_OBJECT
private slots:
    void formAndStars();
    void addingWritesTheBlockBehindTheFile();
    void deleteTakesThePasswordAndWhatFollows();
    void missingFileOrLoginChangesNothing();
};

void TstDialogAddUsers::formAndStars()
{
    DialogAddUsers d("/nonexistent/velmora.cfg");
    QCOMPARE(d.windowTitle(), QString("Добавить пользователей"));
    QCOMPARE(d.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Cancel)->text(),
             QString("Отмена"));
    QTableWidget* t = table(d);
    QCOMPARE(t->columnCount(), 2);
    QCOMPARE(t->horizontalHeaderItem(0)->text(), QString("Логин"));
    QCOMPARE(t->horizontalHeaderItem(1)->text(), QString("Пароль"));
    QCOMPARE(t->selectionBehavior(), QAbstractItemView::SelectRows);
    QCOMPARE(t->selectionMode(), QAbstractItemView::SingleSelection);

    // Passwords of any length look the same; logins are shown as they are.
    auto* stars = qobject_cast<StarDelegate*>(t->itemDelegateForColumn(1));
    QVERIFY(stars);
    QVERIFY(!qobject_cast<StarDelegate*>(t->itemDelegateForColumn(0)));
    const QLocale locale;
    QCOMPARE(stars->displayText(QString("abcdef"), locale), QString("******"));
    QCOMPARE(stars->displayText(QString(60, 'x'), locale), QString("******"));
    QCOMPARE(stars->displayText(QString(), locale), QString("******"));
}

void TstDialogAddUsers::addingWritesTheBlockBehindTheFile()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("gateway.cfg");
    QVERIFY(CScrambler::WriteFile(path, kTree));

    {
        DialogAddUsers d(path);
        QCOMPARE(table(d)->rowCount(), 0);
        addUser(d, "operator", "пароль1");
        QCOMPARE(clearText(path), kTree + "USERS\n\n[users]\nusers = operator;пароль1;");
        // An empty password is allowed, and a known login isn't noticed.
        addUser(d, "guest", "");
        addUser(d, "operator", "x");
        QCOMPARE(clearText(path), kTree + "USERS\n\n[users]\nusers = operator;пароль1;guest;;operator;x;");
        QCOMPARE(rows(d), QStringList({"operator=пароль1", "guest=", "operator=x"}));
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 2; ++c)
                QCOMPARE(int(table(d)->item(r, c)->flags()), 33);
    }

    // The block is scrambled with the rest of the file: no clear text on disk.
    QFile raw(path);
    QVERIFY(raw.open(QIODevice::ReadOnly));
    const QByteArray bytes = raw.readAll();
    QVERIFY(!bytes.contains("USERS") && !bytes.contains("operator"));

    // A new dialog reads the list back.
    DialogAddUsers again(path);
    QCOMPARE(rows(again), QStringList({"operator=пароль1", "guest=", "operator=x"}));
}

void TstDialogAddUsers::deleteTakesThePasswordAndWhatFollows()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("gateway.cfg");
    const QString head = kTree + "USERS\n\n[users]\nusers = ";

    // The row's password is looked for, and the part behind it (the next
    // login) goes with it: the row of a leaves a with b's password.
    QVERIFY(CScrambler::WriteFile(path, head + "a;1;b;2;"));
    {
        DialogAddUsers d(path);
        QCOMPARE(rows(d), QStringList({"a=1", "b=2"}));
        deleteRow(d, 0);
        QCOMPARE(clearText(path), head + "a;2;");
        QCOMPARE(rows(d), QStringList({"a=2"}));
    }

    // The last row loses its password and the empty tail: one row is left.
    QVERIFY(CScrambler::WriteFile(path, head + "a;1;b;2;"));
    {
        DialogAddUsers d(path);
        deleteRow(d, 1);
        QCOMPARE(clearText(path), head + "a;1;b");
        QCOMPARE(rows(d), QStringList({"a=1"}));
    }

    // Every part is compared, logins too, and the first hit wins whichever
    // row was chosen.
    QVERIFY(CScrambler::WriteFile(path, head + "7;x;b;7;c;7;"));
    {
        DialogAddUsers d(path);
        deleteRow(d, 2);
        QCOMPARE(clearText(path), head + "b;7;c;7;");
    }

    // Without a current row nothing happens.
    QVERIFY(CScrambler::WriteFile(path, head + "a;1;"));
    {
        DialogAddUsers d(path);
        d.findChild<QPushButton*>("pushButton_delete_user")->click();
        QCOMPARE(clearText(path), head + "a;1;");
    }
}

void TstDialogAddUsers::missingFileOrLoginChangesNothing()
{
    QTemporaryDir dir;
    const QString missing = dir.filePath("none.cfg");
    ModalWatcher watcher;
    {
        DialogAddUsers d(missing);
        addUser(d, "a", "1");
        QVERIFY(!QFile::exists(missing));
        QCOMPARE(table(d)->rowCount(), 0);
    }
    QCOMPARE(watcher.seen().size(), 0);

    const QString path = dir.filePath("gateway.cfg");
    QVERIFY(CScrambler::WriteFile(path, kTree));
    DialogAddUsers d(path);
    watcher.answer(QMessageBox::Ok);
    addUser(d, "", "1");
    QCOMPARE(watcher.seen().size(), 1);
    QCOMPARE(watcher.seen().at(0).title, QString("Внимание"));
    QCOMPARE(watcher.seen().at(0).text, QString("Заполните поле логин"));
    QCOMPARE(clearText(path), kTree);

    // A file that can be read but not written keeps its text and says so.
    QFile::setPermissions(path, QFile::ReadOwner);
    if (QFileInfo(path).isWritable())
        return; // running as root: permissions don't stop the write
    watcher.answer(QMessageBox::Ok);
    addUser(d, "a", "1");
    QCOMPARE(watcher.seen().size(), 2);
    QCOMPARE(watcher.seen().at(1).text, QString("Не удалось сохранить файл конфигурации"));
    QCOMPARE(clearText(path), kTree);
}

QTEST_MAIN(TstDialogAddUsers)
#include "tst_dialogaddusers.moc"
