#include "d_web_feed.h"

#include <chrono>

namespace {

constexpr size_t c_recentEvents = 64;

} // namespace

void DWebFeed::committed(qint64 id)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_newestId = id;
    }
    m_news.notify_all();
}

void DWebFeed::changed(const QByteArray& type, const QByteArray& data)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        QByteArray& latest = m_latest[type];
        if (latest == data)
            return;
        latest = data;
        m_recent.push_back({++m_events, type, data});
        if (m_recent.size() > c_recentEvents)
            m_recent.pop_front();
    }
    m_news.notify_all();
}

void DWebFeed::close()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    m_news.notify_all();
}

bool DWebFeed::wait(DCursor* cursor, int timeoutMs, QByteArray* events, qint64* newestId)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_news.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return m_closed || m_newestId > cursor->resultId || m_events > cursor->event;
    });
    for (const DEvent& event : m_recent) {
        if (event.number > cursor->event)
            *events += "event: " + event.type + "\ndata: " + event.data + "\n\n";
    }
    cursor->event = m_events;
    *newestId = m_newestId;
    return !m_closed;
}

QByteArray DWebFeed::current(DCursor* cursor) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QByteArray out;
    for (const auto& [type, data] : m_latest)
        out += "event: " + type + "\ndata: " + data + "\n\n";
    cursor->event = m_events;
    return out;
}

QByteArray DWebFeed::status() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QByteArray out = "{\"lastId\":" + QByteArray::number(m_newestId);
    for (const auto& [type, data] : m_latest)
        out += ",\"" + type + "\":" + data;
    return out + '}';
}

qint64 DWebFeed::newestId() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_newestId;
}
