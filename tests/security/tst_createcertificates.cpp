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

// Fills a form that passes every check, sets one field to value and
// presses Ok; returns the map that was emitted, if any.
QMap<QString, QString> submit(CreateCertificates& d, const QString& folder, const QString& field = QString(),
                              const QString& value = QString())
{
    edit(d, "lineEdit_organization_name")->setText("Тарн");
    d.findChild<QTextEdit*>("textEdit_ip_adresses")->setPlainText("127.0.0.1");
    edit(d, "lineEdit_outputCatalogCert")->setText(folder);
    edit(d, "lineEdit_outputCatalogKey")->setText(folder);
    if (field.startsWith("lineEdit_password")) {
        d.findChild<QCheckBox*>("checkBox_usePassword")->setChecked(true);
        edit(d, "lineEdit_password")->setText("secret");
        edit(d, "lineEdit_passwordRepeat")->setText("secret");
    }
    if (QLineEdit* line = field.isEmpty() ? nullptr : edit(d, field))
        line->setText(value);
    else if (auto* text = field.isEmpty() ? nullptr : d.findChild<QTextEdit*>(field))
        text->setPlainText(value);
    QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
    d.findChild<QPushButton*>("pushButton_ok")->click();
    return emitted.isEmpty() ? QMap<QString, QString>() : emitted.at(0).at(0).value<QMap<QString, QString>>();
}

} // namespace

class TstCreateCertificates : public QObject
{
    Q_OBJECT
private slots:
    void eachCheckHasItsWarning();
    void acceptedFormAndItsHelpers();
};

void TstCreateCertificates::eachCheckHasItsWarning()
{
    // Field, its value, the warning.
    const std::tuple<const char*, QString, QString> cases[] = {
        {"lineEdit_common_name", "", "Имя не заполнено"},
        {"lineEdit_organization_name", "", "Имя организации не заполнено"},
        {"textEdit_ip_adresses", "", "Домены или IP адреса не заполнено"},
        {"lineEdit_outputCatalogCert", "", "Путь до каталога с сертификатами не заполнено"},
        {"lineEdit_outputCatalogKey", VELMORA_BIN_DIR "/generate_certificate",
         "Путь до каталога с сертификатами не являеться путем"},
        {"lineEdit_password", "", "Пароль не заполнено"},
        {"lineEdit_passwordRepeat", "other", "Пароли не совпадают"}};
    QTemporaryDir dir;
    for (const auto& [field, value, text] : cases) {
        CreateCertificates d(nullptr);
        ModalWatcher watcher;
        watcher.answer(QMessageBox::Ok);
        QVERIFY2(submit(d, dir.path(), field, value).isEmpty(), field);
        QVERIFY(watcher.seen().size() == 1 && watcher.seen().at(0).title == "Внимание");
        QCOMPARE(watcher.seen().at(0).text, text);
        QCOMPARE(d.result(), int(QDialog::Rejected));
    }
}

// The map's keys and the combo boxes' values are followed to the tool's
// command line by the security commands test.
void TstCreateCertificates::acceptedFormAndItsHelpers()
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
    edit(d, "lineEdit_outputCatalogKey")->setText("/tmp");
    watcher.answerFile(QString());
    d.findChild<QPushButton*>("pushButton_fileDialogKey")->click();
    QCOMPARE(edit(d, "lineEdit_outputCatalogKey")->text(), QString());
    QVERIFY(watcher.seen().size() == 2 && watcher.seen().at(0).title == "Открыть каталог");

    // A password counts only with its check box, which opens both fields;
    // five years are 5 * 365 days.
    edit(d, "lineEdit_password")->setText("never used");
    QVERIFY(!edit(d, "lineEdit_password")->isEnabled() && !edit(d, "lineEdit_passwordRepeat")->isEnabled());
    auto map = submit(d, dir.path());
    QCOMPARE(d.result(), int(QDialog::Accepted));
    QVERIFY(!map.contains("password") && !map.contains("passwordRepeat"));
    QCOMPARE(map["validate"], QString("1825"));
    d.findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(1);
    map = submit(d, dir.path(), "lineEdit_passwordRepeat", "secret");
    QVERIFY(edit(d, "lineEdit_password")->isEnabled() && edit(d, "lineEdit_passwordRepeat")->isEnabled());
    QVERIFY(map["password"] == "secret" && map["validate"] == "7");
    QCOMPARE(watcher.seen().size(), 2);
}

QTEST_MAIN(TstCreateCertificates)
#include "tst_createcertificates.moc"
