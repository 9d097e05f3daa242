#include "tests/common/modalwatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QTest>

namespace {

// A handler meant for one kind of modal that meets another closes it rather than hang.
void close(QWidget* w)
{
    if (auto* d = qobject_cast<QDialog*>(w))
        d->reject();
    else
        w->close();
}

} // namespace

ModalWatcher::ModalWatcher(QObject* parent) : QObject(parent)
{
    connect(&m_timer, &QTimer::timeout, this, &ModalWatcher::poll);
    m_timer.start(10);
}

ModalWatcher::~ModalWatcher()
{
    QStringList unexpected;
    for (const Seen& s : m_seen)
        if (s.unexpected)
            unexpected << s.title + ": " + s.text;
    QTest::qVerify(unexpected.isEmpty(), "no unexpected modal", qPrintable(unexpected.join("; ")), __FILE__,
                   __LINE__);
}

void ModalWatcher::answer(QMessageBox::StandardButton button)
{
    answer([button](QWidget* w) { pressButton(w, button); });
}

void ModalWatcher::answerFile(const QString& path)
{
    answer([path](QWidget* w) { chooseFile(w, path); });
}

void ModalWatcher::answerConnect(const QString& url)
{
    answer([url](QWidget* dialog) {
        requireChild<QLineEdit>(dialog, "le_device")->setText(url);
        for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
            requireChild<QAbstractButton>(dialog, name)->click();
    });
}

void ModalWatcher::clear()
{
    m_seen.clear();
    m_handlers.clear();
}

void ModalWatcher::pressButton(QWidget* w, QMessageBox::StandardButton button)
{
    auto* box = qobject_cast<QMessageBox*>(w);
    if (!box)
        close(w);
    else if (QAbstractButton* b = box->button(button))
        b->click();
}

void ModalWatcher::chooseFile(QWidget* w, const QString& path)
{
    auto* dialog = qobject_cast<QFileDialog*>(w);
    if (!dialog || path.isEmpty())
        return close(w);
    // selectFile alone doesn't survive accept while the folder is still being
    // read; the name field is what accept looks at.
    if (auto* edit = dialog->findChild<QLineEdit*>("fileNameEdit"))
        edit->setText(path);
    else
        dialog->selectFile(path);
    QMetaObject::invokeMethod(dialog, "accept");
}

void ModalWatcher::poll()
{
    QWidget* w = QApplication::activeModalWidget();
    if (!w || !w->isVisible() || w->objectName() == "ProgressBar" || m_handled.contains(w))
        return;
    m_handled.removeAll(nullptr);
    m_handled << w;
    auto* box = qobject_cast<QMessageBox*>(w);
    m_seen << Seen{w->metaObject()->className(), w->objectName(), w->windowTitle(),
                   box ? box->text() : QString(), m_handlers.empty()};
    Handler h = close;
    if (!m_handlers.empty()) {
        h = std::move(m_handlers.front());
        m_handlers.pop_front();
    }
    // Answer from a fresh event so the modal's own exec loop is running.
    QTimer::singleShot(0, this, [guard = QPointer<QWidget>(w), h] {
        if (guard)
            h(guard);
    });
}
