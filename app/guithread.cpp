#include "app/guithread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

void GuiThread::run(const std::function<void()>& step)
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        step();
        return;
    }
    QMetaObject::invokeMethod(app, step, Qt::BlockingQueuedConnection);
}
