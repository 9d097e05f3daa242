#pragma once

#include <QDialog>
#include <QMetaType>
#include <QString>
#include <QVariant>

class Ui_WriteValueDialog;

// Asks for one value to write to a tag: shows the tag, its type and its value
// now, and takes only text that is a value of that type. Numbers may have a
// decimal comma or point and spaces between the thousands.
class WriteValueDialog : public QDialog
{
    Q_OBJECT
public:
    WriteValueDialog(const QString& fullName, const QString& typeName, QMetaType type, const QString& current,
                     QWidget* parent = nullptr);
    ~WriteValueDialog() override;

    // The value typed in, held in `type`; invalid while the text is none.
    QVariant value() const { return m_value; }

    // The text as a value of `type`, or an invalid QVariant; `rule` gets what the type takes.
    static QVariant parse(const QString& text, QMetaType type, QString* rule = nullptr);

private slots:
    void on_valueEdit_textChanged(const QString& text);

private:
    Ui_WriteValueDialog* ui;
    QMetaType m_type;
    QVariant m_value;
};
