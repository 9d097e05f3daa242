#pragma once

#include "server/addressspace.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

class CItem;

// Hands the channels a reader has finished, their tags made ready, over to
// the thread that makes their nodes, so that a large tree is read and built
// side by side.
class CChannelFeed
{
public:
    void Put(CItem* channel, CAddressSpace::Prepared tags);
    // No channel comes after this.
    void Close();
    // The next channel, waited for, and its tags; null once the feed is
    // closed and empty.
    CItem* Next(CAddressSpace::Prepared& tags);

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::pair<CItem*, CAddressSpace::Prepared>> m_channels;
    bool m_closed = false;
};
