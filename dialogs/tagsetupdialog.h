#pragma once

#include <QDialog>
#include <QList>
#include <QString>

class CDATagInfo;
class Ui_TagSetupDialog;

// Modal editor of one tag: Modbus mapping, transformation and emulation.
// Accepting writes the node and hands the values on; in add mode it also asks
// how many tags to make in a row.
class TagSetupDialog : public QDialog
{
    Q_OBJECT
public:
    TagSetupDialog(CDATagInfo*& tag, bool edit, QWidget* parent = nullptr);
    ~TagSetupDialog() override;

    void Init();

signals:
    void signalInfoTag(QList<QString> info, bool flagSaveEnable);
    void signalInfoCountTag(int count);

private slots:
    void on_regTypeBox_currentIndexChanged(int index);
    void on_valTypeBox_currentIndexChanged(int index);
    void on_writeBox_currentIndexChanged(int index);
    void on_writeGroupBox_currentIndexChanged(int index);
    void on_regsInSegmentBox_valueChanged(int value);
    void on_regsInSegmentBox_textChanged(const QString& text);
    void on_transformTypeBox_currentIndexChanged(int index);
    void on_emulTypeBox_currentIndexChanged(int index);
    void on_TagSetupDialog_accepted();

private:
    Ui_TagSetupDialog* ui;
    CDATagInfo* m_tag;
    QString m_oldName;
};
