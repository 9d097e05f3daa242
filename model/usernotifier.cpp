#include "model/usernotifier.h"

#include "app/logging.h"

CUserNotifier::Handler& CUserNotifier::handler()
{
    static Handler h;
    return h;
}

void CUserNotifier::Install(Handler h)
{
    handler() = std::move(h);
}

void CUserNotifier::Warning(const QString& title, const QString& text)
{
    if (handler())
        handler()(title, text);
    else
        VLOG_WARNING() << title << ":" << text;
}
