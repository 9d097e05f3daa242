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

QLineEdit* edit(QWidget& d, const char* name)
{
    return d.findChild<QLineEdit*>(name);
}

// A form that passes every check: two existing folders, a name, an
// organisation and one address.
void fillValid(QWidget& d, const QString& folder)
{
    edit(d, "lineEdit_organization_name")->setText("Тарн");
    d.findChild<QTextEdit*>("textEdit_ip_adresses")->setPlainText("127.0.0.1");
    edit(d, "lineEdit_outputCatalogCert")->setText(folder);
    edit(d, "lineEdit_outputCatalogKey")->setText(folder);
}

} // namespace

class TstCreateCertificates : public QObject
{
    Q_OBJECT
private slots:
    void startValues();
    void countryKeepsTwoLettersAndPasswordFollowsCheckBox();
    void checksInOrder_data();
    void checksInOrder();
    void acceptedFormGivesTheMap();
    void validityInDays();
};

void TstCreateCertificates::startValues()
{
    CreateCertificates d(nullptr);
    QCOMPARE(d.windowTitle(), QString("Создать сертификаты"));
    QCOMPARE(edit(d, "lineEdit_common_name")->text(), QString("OPCUA@localhost"));
    QCOMPARE(edit(d, "lineEdit_country_name")->text(), QString("RU"));
    QCOMPARE(edit(d, "lineEdit_appURI")->text(), QString("urn:tarnopcua.server.application"));
    QVERIFY(!edit(d, "lineEdit_appURI")->isEnabled());
    QVERIFY(!edit(d, "lineEdit_password")->isEnabled());
    QVERIFY(!edit(d, "lineEdit_passwordRepeat")->isEnabled());
    QCOMPARE(d.findChild<QComboBox*>("comboBox_keySize")->currentText(), QString("2048 бит"));
    QCOMPARE(d.findChild<QComboBox*>("comboBox_algoritm")->currentText(), QString("Sha256"));
    QCOMPARE(d.findChild<QComboBox*>("comboBox_validate")->currentText(), QString("5 лет"));
    QCOMPARE(d.findChild<QComboBox*>("comboBox_validate")->count(), 10);
    QCOMPARE(d.findChild<QPushButton*>("pushButton_ok")->text(), QString("Ок"));
    QCOMPARE(d.findChild<QPushButton*>("pushButton_cancel")->text(), QString("Отмена"));
}

void TstCreateCertificates::countryKeepsTwoLettersAndPasswordFollowsCheckBox()
{
    CreateCertificates d(nullptr);
    QLineEdit* country = edit(d, "lineEdit_country_name");
    country->clear();
    QTest::keyClicks(country, "DEU");
    QCOMPARE(country->text(), QString("DE"));

    auto* use = d.findChild<QCheckBox*>("checkBox_usePassword");
    use->setChecked(true);
    QVERIFY(edit(d, "lineEdit_password")->isEnabled() && edit(d, "lineEdit_passwordRepeat")->isEnabled());
    use->setChecked(false);
    QVERIFY(!edit(d, "lineEdit_password")->isEnabled() && !edit(d, "lineEdit_passwordRepeat")->isEnabled());
}

void TstCreateCertificates::checksInOrder_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("text");
    // Each row spoils one field of an otherwise valid form; later checks never
    // hide an earlier one because the form is valid everywhere else.
    QTest::newRow("1 name") << "lineEdit_common_name"
                            << ""
                            << "Имя не заполнено";
    QTest::newRow("2 organisation") << "lineEdit_organization_name"
                                    << ""
                                    << "Имя организации не заполнено";
    QTest::newRow("3 no hosts") << "textEdit_ip_adresses"
                                << ""
                                << "Домены или IP адреса не заполнено";
    QTest::newRow("4 cert folder empty") << "lineEdit_outputCatalogCert"
                                         << ""
                                         << "Путь до каталога с сертификатами не заполнено";
    QTest::newRow("4 key folder empty") << "lineEdit_outputCatalogKey"
                                        << ""
                                        << "Путь до каталога с сертификатами не заполнено";
    QTest::newRow("5 cert folder missing") << "lineEdit_outputCatalogCert"
                                           << "/nonexistent/velmora"
                                           << "Путь до каталога с сертификатами не являеться путем";
    QTest::newRow("6 key folder is a file") << "lineEdit_outputCatalogKey"
                                            << "FILE"
                                            << "Путь до каталога с сертификатами не являеться путем";
    QTest::newRow("7 password empty") << "lineEdit_password"
                                      << ""
                                      << "Пароль не заполнено";
    QTest::newRow("7 repeat empty") << "lineEdit_passwordRepeat"
                                    << ""
                                    << "Пароль не заполнено";
    QTest::newRow("8 passwords differ") << "lineEdit_passwordRepeat"
                                        << "other"
                                        << "Пароли не совпадают";
}

void TstCreateCertificates::checksInOrder()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(QString, text);

    QTemporaryDir dir;
    QFile file(dir.filePath("plain"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    CreateCertificates d(nullptr);
    fillValid(d, dir.path());
    if (field.startsWith("lineEdit_password")) {
        d.findChild<QCheckBox*>("checkBox_usePassword")->setChecked(true);
        edit(d, "lineEdit_password")->setText("secret");
        edit(d, "lineEdit_passwordRepeat")->setText("secret");
    }
    if (auto* line = edit(d, qPrintable(field)))
        line->setText(value == "FILE" ? file.fileName() : value);
    else
        d.findChild<QTextEdit*>(field)->setPlainText(value);

    QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
    ModalWatcher watcher;
    watcher.answer(QMessageBox::Ok);
    d.findChild<QPushButton*>("pushButton_ok")->click();

    QCOMPARE(watcher.seen().size(), 1);
    QCOMPARE(watcher.seen().at(0).title, QString("Внимание"));
    QCOMPARE(watcher.seen().at(0).text, text);
    QCOMPARE(emitted.count(), 0);
    QCOMPARE(d.result(), int(QDialog::Rejected));
}

void TstCreateCertificates::acceptedFormGivesTheMap()
{
    QTemporaryDir dir;
    CreateCertificates d(nullptr);
    fillValid(d, dir.path());
    // Domains alone are enough, and a password without the check box is ignored.
    d.findChild<QTextEdit*>("textEdit_ip_adresses")->clear();
    d.findChild<QTextEdit*>("textEdit_domains")->setPlainText("host1,host2");
    edit(d, "lineEdit_password")->setText("never used");
    d.findChild<QComboBox*>("comboBox_keySize")->setCurrentIndex(3);
    d.findChild<QComboBox*>("comboBox_algoritm")->setCurrentIndex(4);

    QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
    ModalWatcher watcher;
    d.findChild<QPushButton*>("pushButton_ok")->click();
    QCOMPARE(watcher.seen().size(), 0);
    QCOMPARE(d.result(), int(QDialog::Accepted));
    QCOMPARE(emitted.count(), 1);

    const auto map = emitted.at(0).at(0).value<QMap<QString, QString>>();
    QCOMPARE(map.keys(),
             QStringList({"algotirm", "appURI", "city_name", "common_name", "country_name", "domains",
                          "ip_adresses", "keySize", "locality_name", "organization_name", "organization_unit",
                          "outputCatalogCert", "outputCatalogKey", "validate"}));
    QCOMPARE(map["appURI"], QString("urn:tarnopcua.server.application"));
    QCOMPARE(map["keySize"], QString("4096"));
    QCOMPARE(map["algotirm"], QString("Sha512"));
    QCOMPARE(map["validate"], QString("1825"));
    QCOMPARE(map["domains"], QString("host1,host2"));
    QCOMPARE(map["outputCatalogKey"], dir.path());

    // With the check box the two password keys join the map.
    CreateCertificates withPassword(nullptr);
    fillValid(withPassword, dir.path());
    withPassword.findChild<QCheckBox*>("checkBox_usePassword")->setChecked(true);
    edit(withPassword, "lineEdit_password")->setText("p");
    edit(withPassword, "lineEdit_passwordRepeat")->setText("p");
    QSignalSpy second(&withPassword, &CreateCertificates::signalCreateCertificate);
    withPassword.findChild<QPushButton*>("pushButton_ok")->click();
    QCOMPARE(second.count(), 1);
    const auto map2 = second.at(0).at(0).value<QMap<QString, QString>>();
    QCOMPARE(map2["password"], QString("p"));
    QCOMPARE(map2["passwordRepeat"], QString("p"));
}

void TstCreateCertificates::validityInDays()
{
    const QStringList expected = {"1", "7", "30", "365", "730", "1095", "1460", "1825", "3650", "7300"};
    QTemporaryDir dir;
    for (int index = 0; index < expected.size(); ++index) {
        CreateCertificates d(nullptr);
        fillValid(d, dir.path());
        d.findChild<QComboBox*>("comboBox_validate")->setCurrentIndex(index);
        QSignalSpy emitted(&d, &CreateCertificates::signalCreateCertificate);
        d.findChild<QPushButton*>("pushButton_ok")->click();
        QCOMPARE(emitted.count(), 1);
        const auto map = emitted.at(0).at(0).value<QMap<QString, QString>>();
        QCOMPARE(map["validate"], expected[index]);
    }
}

QTEST_MAIN(TstCreateCertificates)
#include "tst_createcertificates.moc"
