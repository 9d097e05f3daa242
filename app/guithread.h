#pragma once

#include <functional>

// Runs a step on the GUI thread and waits for it. Workers use it for the few
// places where they must show a box or touch a widget, so the order of steps
// and the wait stay as they are while widgets are only used on their thread.
class GuiThread
{
public:
    static void run(const std::function<void()>& step);
};
