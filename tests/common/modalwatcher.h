#pragma once

#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <functional>

// Watches for modal boxes and dialogs while a test drives the program, records what each one
// said and answers it with the next queued handler, so that no test ever hangs on a box. A modal
// that arrives with no handler queued is recorded as unexpected and rejected, and fails the running
// test when the watcher goes. The busy dialog is left alone.
class ModalWatcher : public QObject
{
    Q_OBJECT
public:
    struct Seen
    {
        QString className, objectName, title, text;
        bool unexpected = false;
    };
    using Handler = std::function<void(QWidget*)>;

    explicit ModalWatcher(QObject* parent = nullptr);
    ~ModalWatcher() override;

    void answer(Handler handler) { m_handlers.push_back(std::move(handler)); }
    // Presses this button of the next QMessageBox.
    void answer(QMessageBox::StandardButton button);
    // Types a path into the next QFileDialog and accepts it; an empty path cancels.
    void answerFile(const QString& path);
    // Takes the next find-server dialog through search, endpoints and connect to url, then OK.
    void answerConnect(const QString& url);

    const QList<Seen>& seen() const { return m_seen; }
    int pending() const { return int(m_handlers.size()); }
    void clear();

    static void pressButton(QWidget* box, QMessageBox::StandardButton button);
    static void chooseFile(QWidget* dialog, const QString& path);

private:
    void poll();

    QTimer m_timer;
    std::deque<Handler> m_handlers;
    QList<Seen> m_seen;
    QList<QPointer<QWidget>> m_handled;
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
