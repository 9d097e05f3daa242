#pragma once

#include <QString>

#include <functional>

// The model and file code has no widgets, yet a few of its failures are told
// to the user in a box. The application installs a handler that shows the box
// on the GUI thread; without one the text goes to the log.
class CUserNotifier
{
public:
    using Handler = std::function<void(const QString& title, const QString& text)>;

    static void Install(Handler handler);
    static void Warning(const QString& title, const QString& text);

private:
    static Handler& handler();
};
