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
    void startValuesCountryAndPassword();
    void checksInOrder_data();
    void checksInOrder();
    void acceptedFormGivesTheMap();
    void folderChoosersFillTheFields();
};

void TstCreateCertificates::startValuesCountryAndPassword()
{
    CreateCertificates d(nullptr);
    QCOMPARE(d.windowTitle(), QString("Создать сертификаты"));
    QCOMPARE(edit(d, "lineEdit_common_name")->text(), QString("OPCUA@localhost"));
    QCOMPARE(edit(d, "lineEdit_appURI")->text(), QString("urn:tarnopcua.server.application"));
    QVERIFY(!edit(d, "lineEdit_appURI")->isEnabled());
    QCOMPARE(d.findChild<QComboBox*>("comboBox_keySize")->currentText(), QString("2048 бит"));
    QCOMPARE(d.findChild<QComboBox*>("comboBox_algoritm")->currentText(), QString("Sha256"));
    QCOMPARE(d.findChild<QComboBox*>("comboBox_validate")->currentText(), QString("5 лет"));

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
}

void TstCreateCertificates::checksInOrder_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("text");
    const QString notPath = "Путь до каталога с сертификатами не являеться путем";
    QTest::newRow("name") << "lineEdit_common_name"
                          << ""
                          << "Имя не заполнено";
    QTest::newRow("organisation") << "lineEdit_organization_name"
                                  << ""
                                  << "Имя организации не заполнено";
    QTest::newRow("no hosts") << "textEdit_ip_adresses"
                              << ""
                              << "Домены или IP адреса не заполнено";
    QTest::newRow("cert folder") << "lineEdit_outputCatalogCert"
                                 << ""
                                 << "Путь до каталога с сертификатами не заполнено";
    QTest::newRow("key folder") << "lineEdit_outputCatalogKey"
                                << ""
                                << "Путь до каталога с сертификатами не заполнено";
    QTest::newRow("cert not a folder") << "lineEdit_outputCatalogCert"
                                       << "/nonexistent" << notPath;
    QTest::newRow("key is a file") << "lineEdit_outputCatalogKey"
                                   << QString(VELMORA_BIN_DIR "/generate_certificate") << notPath;
    QTest::newRow("password") << "lineEdit_password"
                              << ""
                              << "Пароль не заполнено";
    QTest::newRow("repeat") << "lineEdit_passwordRepeat"
                            << ""
                            << "Пароль не заполнено";
    QTest::newRow("differ") << "lineEdit_passwordRepeat"
                            << "other"
                            << "Пароли не совпадают";
}

void TstCreateCertificates::checksInOrder()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(QString, text);
    QTemporaryDir dir;
    CreateCertificates d(nullptr);
    ModalWatcher watcher;
    QVERIFY(submit(d, dir.path(), field, value, &watcher).isEmpty());
    QCOMPARE(watcher.seen().size(), 1);
    QCOMPARE(watcher.seen().at(0).title, QString("Внимание"));
    QCOMPARE(watcher.seen().at(0).text, text);
    QCOMPARE(d.result(), int(QDialog::Rejected));
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
        QCOMPARE(map.keys(),
                 QStringList({"algotirm", "appURI", "city_name", "common_name", "country_name", "domains",
                              "ip_adresses", "keySize", "locality_name", "organization_name",
                              "organization_unit", "outputCatalogCert", "outputCatalogKey", "validate"}));
        QCOMPARE(map["keySize"], QString("4096"));
        QCOMPARE(map["algotirm"], QString("Sha512"));
        QCOMPARE(map["validate"], QString("1825"));
        QCOMPARE(map["domains"], QString("host1,host2"));
        QCOMPARE(map["appURI"], QString("urn:tarnopcua.server.application"));
    }
    {
        CreateCertificates d(nullptr);
        const auto map = submit(d, dir.path(), "lineEdit_passwordRepeat", "secret");
        QCOMPARE(map["password"], QString("secret"));
        QCOMPARE(map["passwordRepeat"], QString("secret"));
    }
    // Days by the entry's place: days, weeks, months of 30 days, years of 365.
    const QStringList days = {"1", "7", "30", "365", "730", "1095", "1460", "1825", "3650", "7300"};
    for (int index = 0; index < days.size(); ++index) {
        CreateCertificates d(nullptr);
        d.findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(index);
        QCOMPARE(submit(d, dir.path())["validate"], days[index]);
    }
    QCOMPARE(watcher.seen().size(), 0);
}

void TstCreateCertificates::folderChoosersFillTheFields()
{
    QTemporaryDir dir;
    CreateCertificates d(nullptr);
    ModalWatcher watcher;
    for (const char* name : {"Cert", "Key"}) {
        QLineEdit* field = edit(d, QString("lineEdit_outputCatalog") + name);
        watcher.answerFile(dir.path());
        d.findChild<QPushButton*>(QString("pushButton_fileDialog") + name)->click();
        QCOMPARE(QDir(field->text()), QDir(dir.path()));
        // What the chooser answers goes into the field, an empty answer too.
        watcher.answerFile(QString());
        d.findChild<QPushButton*>(QString("pushButton_fileDialog") + name)->click();
        QCOMPARE(field->text(), QString());
    }
    QCOMPARE(watcher.seen().size(), 4);
    QCOMPARE(watcher.seen().at(0).title, QString("Открыть каталог"));
}

QTEST_MAIN(TstCreateCertificates)
#include "tst_createcertificates.moc"
