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
// presses Ok; answers a warning and returns the map that was emitted, if any.
QMap<QString, QString> submit(CreateCertificates& d, const QString& folder, const QString& field = QString(),
                              const QString& value = QString(), ModalWatcher* watcher = nullptr)
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
    if (watcher)
        watcher->answer(QMessageBox::Ok);
    QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
    d.findChild<QPushButton*>("pushButton_ok")->click();
    return emitted.isEmpty() ? QMap<QString, QString>() : emitted.at(0).at(0).value<QMap<QString, QString>>();
}

} // namespace

class TstCreateCertificates : public QObject
{
    Q_OBJECT
private slots:
    void checksInOrder();
    void acceptedFormGivesTheMap();
    void countryPasswordAndFolderChoosers();
};

void TstCreateCertificates::checksInOrder()
{
    const QString notPath = "Путь до каталога с сертификатами не являеться путем";
    const QString noPath = "Путь до каталога с сертификатами не заполнено";
    // Field, its value, the warning.
    const std::tuple<const char*, QString, QString> cases[] = {
        {"lineEdit_common_name", "", "Имя не заполнено"},
        {"lineEdit_organization_name", "", "Имя организации не заполнено"},
        {"textEdit_ip_adresses", "", "Домены или IP адреса не заполнено"},
        {"lineEdit_outputCatalogCert", "", noPath},
        {"lineEdit_outputCatalogKey", "", noPath},
        {"lineEdit_outputCatalogCert", "/nonexistent", notPath},
        {"lineEdit_outputCatalogKey", VELMORA_BIN_DIR "/generate_certificate", notPath},
        {"lineEdit_password", "", "Пароль не заполнено"},
        {"lineEdit_passwordRepeat", "", "Пароль не заполнено"},
        {"lineEdit_passwordRepeat", "other", "Пароли не совпадают"}};
    QTemporaryDir dir;
    for (const auto& [field, value, text] : cases) {
        CreateCertificates d(nullptr);
        ModalWatcher watcher;
        QVERIFY2(submit(d, dir.path(), field, value, &watcher).isEmpty(), field);
        QVERIFY(watcher.seen().size() == 1 && watcher.seen().at(0).title == "Внимание");
        QCOMPARE(watcher.seen().at(0).text, text);
        QCOMPARE(d.result(), int(QDialog::Rejected));
    }
}

void TstCreateCertificates::acceptedFormGivesTheMap()
{
    QTemporaryDir dir;
    ModalWatcher watcher;
    {
        // Domains alone pass, and a password without the check box is left out.
        CreateCertificates d(nullptr);
        d.findChild<QComboBox*>("comboBox_keySize")->setCurrentIndex(3);
        d.findChild<QComboBox*>("comboBox_algoritm")->setCurrentIndex(4);
        d.findChild<QTextEdit*>("textEdit_domains")->setPlainText("host1,host2");
        edit(d, "lineEdit_password")->setText("never used");
        const auto map = submit(d, dir.path(), "textEdit_ip_adresses", "");
        QCOMPARE(d.result(), int(QDialog::Accepted));
        QVERIFY(!map.contains("password") && !map.contains("passwordRepeat"));
        QCOMPARE(
            QStringList({map["keySize"], map["algotirm"], map["validate"], map["domains"], map["appURI"]}),
            QStringList({"4096", "Sha512", "1825", "host1,host2", "urn:tarnopcua.server.application"}));
    }
    {
        CreateCertificates d(nullptr);
        const auto map = submit(d, dir.path(), "lineEdit_passwordRepeat", "secret");
        QVERIFY(map["password"] == "secret" && map["passwordRepeat"] == "secret");
    }
    // Days by the entry's place: days, weeks, months of 30 days, years of 365.
    for (auto [index, days] : {std::pair{1, "7"}, {2, "30"}, {9, "7300"}}) {
        CreateCertificates d(nullptr);
        d.findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(index);
        QCOMPARE(submit(d, dir.path())["validate"], QString(days));
    }
    QCOMPARE(watcher.seen().size(), 0);
}

void TstCreateCertificates::countryPasswordAndFolderChoosers()
{
    QTemporaryDir dir;
    CreateCertificates d(nullptr);
    QLineEdit* country = edit(d, "lineEdit_country_name");
    QCOMPARE(country->text(), QString("RU"));
    QTest::keyClicks(country, "S");
    QCOMPARE(country->text(), QString("RU"));
    auto* use = d.findChild<QCheckBox*>("checkBox_usePassword");
    for (bool on : {false, true, false}) {
        use->setChecked(on);
        QCOMPARE(edit(d, "lineEdit_password")->isEnabled(), on);
        QCOMPARE(edit(d, "lineEdit_passwordRepeat")->isEnabled(), on);
    }

    ModalWatcher watcher;
    for (const char* name : {"Cert", "Key"}) {
        QLineEdit* field = edit(d, QString("lineEdit_outputCatalog") + name);
        auto* chooser = d.findChild<QPushButton*>(QString("pushButton_fileDialog") + name);
        watcher.answerFile(dir.path());
        chooser->click();
        QCOMPARE(QDir(field->text()), QDir(dir.path()));
        // What the chooser answers goes into the field, an empty answer too.
        watcher.answerFile(QString());
        chooser->click();
        QCOMPARE(field->text(), QString());
    }
    QVERIFY(watcher.seen().size() == 4 && watcher.seen().at(0).title == "Открыть каталог");
}

QTEST_MAIN(TstCreateCertificates)
#include "tst_createcertificates.moc"
