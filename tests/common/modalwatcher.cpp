#include "tests/common/modalwatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QLineEdit>

ModalWatcher::ModalWatcher(QObject* parent) : QObject(parent)
{
    m_timer.setInterval(10);
    connect(&m_timer, &QTimer::timeout, this, &ModalWatcher::poll);
    m_timer.start();
}

void ModalWatcher::answer(Handler handler)
{
    m_handlers.push_back(std::move(handler));
}

void ModalWatcher::answer(QMessageBox::StandardButton button)
{
    answer([button](QWidget* w) { pressButton(w, button); });
}

int ModalWatcher::unexpectedCount() const
{
    int n = 0;
    for (const Seen& s : m_seen)
        n += s.unexpected ? 1 : 0;
    return n;
}

void ModalWatcher::clear()
{
    m_seen.clear();
    m_handlers.clear();
}

void ModalWatcher::pressButton(QWidget* w, QMessageBox::StandardButton button)
{
    auto* box = qobject_cast<QMessageBox*>(w);
    if (!box) {
        // A button meant for a box met another dialog: close it rather than hang.
        if (auto* d = qobject_cast<QDialog*>(w))
            d->reject();
        return;
    }
    if (QAbstractButton* b = box->button(button))
        b->click();
}

void ModalWatcher::chooseFile(QWidget* w, const QString& path)
{
    auto* dialog = qobject_cast<QFileDialog*>(w);
    if (!dialog) {
        if (auto* d = qobject_cast<QDialog*>(w))
            d->reject();
        return;
    }
    if (path.isEmpty()) {
        dialog->reject();
        return;
    }
    // selectFile alone doesn't survive accept while the folder is still being
    // read; the name field is what accept looks at.
    if (auto* edit = dialog->findChild<QLineEdit*>("fileNameEdit"))
        edit->setText(path);
    else
        dialog->selectFile(path);
    QMetaObject::invokeMethod(dialog, "accept");
}

void ModalWatcher::answerFile(const QString& path)
{
    answer([path](QWidget* w) { chooseFile(w, path); });
}

void ModalWatcher::answerConnect(const QString& url)
{
    answer([url](QWidget* dialog) {
        dialog->findChild<QLineEdit*>("le_device")->setText(url);
        for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
            dialog->findChild<QAbstractButton*>(name)->click();
    });
}

void ModalWatcher::poll()
{
    QWidget* w = QApplication::activeModalWidget();
    if (!w || !w->isVisible() || m_ignored.contains(w->objectName()))
        return;
    for (const QPointer<QWidget>& h : m_handled)
        if (h == w)
            return;
    m_handled.removeAll(nullptr);
    m_handled << w;

    Seen s;
    s.className = w->metaObject()->className();
    s.objectName = w->objectName();
    s.title = w->windowTitle();
    if (auto* box = qobject_cast<QMessageBox*>(w))
        s.text = box->text();
    s.unexpected = m_handlers.empty();
    m_seen << s;

    // Answer from a fresh event so the modal's own exec loop is running.
    Handler h;
    if (!m_handlers.empty()) {
        h = std::move(m_handlers.front());
        m_handlers.pop_front();
    } else {
        h = [](QWidget* dlg) {
            if (auto* d = qobject_cast<QDialog*>(dlg))
                d->reject();
            else
                dlg->close();
        };
    }
    QPointer<QWidget> guard(w);
    QTimer::singleShot(0, this, [guard, h] {
        if (guard)
            h(guard);
    });
}
