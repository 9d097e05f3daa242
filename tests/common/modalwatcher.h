#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QWidget>

#include <deque>
#include <functional>

// Watches for modal boxes and dialogs while a test drives the program, records
// what each one said and answers it with the next queued handler, so that no
// test ever hangs on a box. A modal that arrives with no handler queued is
// recorded as unexpected and rejected.
class ModalWatcher : public QObject
{
    Q_OBJECT
public:
    struct Seen
    {
        QString className;
        QString objectName;
        QString title;
        QString text;
        bool unexpected = false;
    };
    using Handler = std::function<void(QWidget*)>;

    explicit ModalWatcher(QObject* parent = nullptr);

    void answer(Handler handler);
    // Presses this button of the next QMessageBox.
    void answer(QMessageBox::StandardButton button);

    // Modals with these object names are left alone (the busy dialog, say).
    void ignore(const QString& objectName) { m_ignored << objectName; }

    const QList<Seen>& seen() const { return m_seen; }
    int pending() const { return int(m_handlers.size()); }
    int unexpectedCount() const;
    void clear();

    static void pressButton(QWidget* box, QMessageBox::StandardButton button);
    // Types a path into a QFileDialog and accepts it; an empty path cancels.
    static void chooseFile(QWidget* dialog, const QString& path);
    // Queues chooseFile for the next modal.
    void answerFile(const QString& path);
    // Queues a handler that takes the find-server dialog through search,
    // endpoints and connect to url, then closes it with OK.
    void answerConnect(const QString& url);

private:
    void poll();

    QTimer m_timer;
    std::deque<Handler> m_handlers;
    QList<Seen> m_seen;
    QList<QPointer<QWidget>> m_handled;
    QStringList m_ignored{"ProgressBar"};
};

// The named child of a dialog or window; a missing one stops the test program
// at once rather than crashing later on a null pointer.
template <typename T> T* requireChild(QWidget* w, const char* name)
{
    T* found = w->findChild<T*>(name);
    if (!found)
        qFatal("no widget %s", name);
    return found;
}
