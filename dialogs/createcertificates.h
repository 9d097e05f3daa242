#pragma once

#include <QDialog>
#include <QMap>
#include <QString>

namespace Ui {
class CreateCertificates;
}

// Collects the subject, key and output folders of a new application
// certificate. The map is handed to the main window, which runs the tool.
class CreateCertificates : public QDialog
{
    Q_OBJECT
public:
    explicit CreateCertificates(QWidget* parent = nullptr);
    ~CreateCertificates() override;

signals:
    void signalCreateCertificate(QMap<QString, QString> settings);

private slots:
    void on_pushButton_ok_clicked();
    void on_pushButton_cancel_clicked();
    void on_pushButton_fileDialogCert_clicked();
    void on_pushButton_fileDialogKey_clicked();
    void on_lineEdit_country_name_textChanged(const QString& text);

private:
    // Not a slot: Qt before 6.7 has no checkStateChanged for connectSlotsByName
    // to find, so the constructor connects stateChanged to it.
    void on_checkBox_usePassword_checkStateChanged(const Qt::CheckState& state);
    void fillSettings();
    // The first failed check's text, or an empty string when all pass.
    QString checkSettings() const;
    int validityDays() const;
    QString chooseFolder();

    Ui::CreateCertificates* ui;
    QMap<QString, QString> m_settings;
};
