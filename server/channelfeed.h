#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

class CItem;

// Hands the channels a reader has finished over to the thread that makes
// their nodes, so that a large tree is read and built side by side.
class CChannelFeed
{
public:
    void Put(CItem* channel);
    // No channel comes after this.
    void Close();
    // The next channel, waited for; null once the feed is closed and empty.
    CItem* Next();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<CItem*> m_channels;
    bool m_closed = false;
};
