#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QWidget>

class QLabel;
class QTableWidget;

// What the gateway tells of the exchange of one channel or device: its state,
// the counts of its requests and answers, response times and the last error,
// one row each, filled as the values come. In place of the rows it can show
// a text: why there is nothing to show.
class DiagnosticsView : public QWidget
{
    Q_OBJECT
public:
    explicit DiagnosticsView(QWidget* parent = nullptr);

    // The rows of a channel (its link too) or of a device, empty until values come.
    void showItem(bool channel, const QString& fullName);
    void showMessage(const QString& text);
    // The ids of the variables of what is shown, "<full name>.<variable>";
    // none while a text is shown.
    QStringList ids() const;
    // A value of one of them, or the status that came instead; values of any
    // other item are not for this view.
    void setValue(const QString& id, const QVariant& value, const QString& status);

    // The state or link state as the gateway names it, in words.
    static QString stateText(const QString& state);

private:
    QLabel* m_title;
    QLabel* m_message;
    QTableWidget* m_table;
    QString m_fullName;
    // Row of each variable shown, by the variable's name.
    QHash<QString, int> m_rows;
};
