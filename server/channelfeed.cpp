#include "server/channelfeed.h"

void CChannelFeed::Put(CItem* channel, CAddressSpace::Prepared tags)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_channels.emplace_back(channel, std::move(tags));
    }
    m_changed.notify_one();
}

void CChannelFeed::Close()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    m_changed.notify_one();
}

CItem* CChannelFeed::Next(CAddressSpace::Prepared& tags)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_closed || !m_channels.empty(); });
    if (m_channels.empty())
        return nullptr;
    CItem* channel = m_channels.front().first;
    tags = std::move(m_channels.front().second);
    m_channels.pop_front();
    return channel;
}
