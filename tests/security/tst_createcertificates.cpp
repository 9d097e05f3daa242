#include "dialogs/createcertificates.h"
#include "tests/common/modalwatcher.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

namespace {

QLineEdit* edit(QWidget& d, const QString& name)
{
    return d.findChild<QLineEdit*>(name);
}

// Sets a line edit, a text edit or, with any text, ticks a check box.
void set(QWidget& d, const QString& field, const QString& value)
{
    if (QLineEdit* line = edit(d, field))
        line->setText(value);
    else if (auto* text = d.findChild<QTextEdit*>(field))
        text->setPlainText(value);
    else
        d.findChild<QCheckBox*>(field)->setChecked(!value.isEmpty());
}

// Presses Ok; the map that was emitted, if any.
QMap<QString, QString> pressOk(CreateCertificates& d)
{
    QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
    d.findChild<QPushButton*>("pushButton_ok")->click();
    return emitted.isEmpty() ? QMap<QString, QString>() : emitted.at(0).at(0).value<QMap<QString, QString>>();
}

} // namespace

class TstCreateCertificates : public QObject
{
    Q_OBJECT
private slots:
    void checksInTurnAndTheHelpers();
};

// The map's keys and the combo boxes' values are followed to the tool's
// command line by the security commands test.
void TstCreateCertificates::checksInTurnAndTheHelpers()
{
    QTemporaryDir dir;
    ModalWatcher watcher;
    CreateCertificates d(nullptr);
    QLineEdit* country = edit(d, "lineEdit_country_name");
    QTest::keyClicks(country, "S");
    QCOMPARE(country->text(), QString("RU"));

    // What a folder chooser answers goes into its field, an empty answer too.
    watcher.answerFile(dir.path());
    d.findChild<QPushButton*>("pushButton_fileDialogCert")->click();
    QCOMPARE(QDir(edit(d, "lineEdit_outputCatalogCert")->text()), QDir(dir.path()));
    set(d, "lineEdit_outputCatalogKey", "x");
    watcher.answerFile(QString());
    d.findChild<QPushButton*>("pushButton_fileDialogKey")->click();
    QCOMPARE(edit(d, "lineEdit_outputCatalogKey")->text(), QString());
    QVERIFY(watcher.seen().size() == 2 && watcher.seen().at(1).title == "Открыть каталог");

    // Each step mends the last complaint and meets the next one.
    auto walk = [&](std::initializer_list<std::tuple<const char*, QString, QString>> steps) {
        for (const auto& [field, value, text] : steps) {
            set(d, field, value);
            watcher.answer(QMessageBox::Ok);
            QVERIFY2(pressOk(d).isEmpty(), field);
            QCOMPARE(watcher.seen().last().title + ": " + watcher.seen().last().text, "Внимание: " + text);
        }
    };
    set(d, "lineEdit_password", "secret");
    walk({{"lineEdit_common_name", "", "Имя не заполнено"},
          {"lineEdit_common_name", "a", "Имя организации не заполнено"},
          {"lineEdit_organization_name", "Тарн", "Домены или IP адреса не заполнено"},
          {"textEdit_domains", "localhost", "Путь до каталога с сертификатами не заполнено"},
          {"lineEdit_outputCatalogKey", VELMORA_BIN_DIR "/generate_certificate",
           "Путь до каталога с сертификатами не являеться путем"}});
    // Domains alone pass, a password counts only with its check box, and
    // five years are 5 * 365 days.
    set(d, "lineEdit_outputCatalogKey", dir.path());
    auto map = pressOk(d);
    QVERIFY(!map.isEmpty() && !map.contains("password") && !map.contains("passwordRepeat"));
    QCOMPARE(map["validate"], QString("1825"));

    // The check box opens both password fields, which then have to match.
    QVERIFY(!edit(d, "lineEdit_password")->isEnabled() && !edit(d, "lineEdit_passwordRepeat")->isEnabled());
    walk({{"checkBox_usePassword", "on", "Пароль не заполнено"},
          {"lineEdit_passwordRepeat", "other", "Пароли не совпадают"}});
    QVERIFY(edit(d, "lineEdit_password")->isEnabled() && edit(d, "lineEdit_passwordRepeat")->isEnabled());
    // A validity in weeks counts seven days each.
    set(d, "lineEdit_passwordRepeat", "secret");
    d.findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(1);
    map = pressOk(d);
    QVERIFY(map["password"] == "secret" && map["validate"] == "7");
    QCOMPARE(watcher.seen().size(), 9);
}

QTEST_MAIN(TstCreateCertificates)
#include "tst_createcertificates.moc"
