#include "views/trendbuffer.h"

#include <QDateTime>
#include <QHash>
#include <QIODevice>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace {

// Names of the statuses seen so far; 0 is the empty one of a break.
QStringList& statusNames()
{
    static QStringList names{QString()};
    return names;
}

quint16 statusIndex(const QString& status)
{
    static QHash<QString, quint16> index{{QString(), 0}};
    auto it = index.constFind(status);
    if (it != index.constEnd())
        return *it;
    const auto next = quint16(statusNames().size());
    statusNames() << status;
    index.insert(status, next);
    return next;
}

} // namespace

TrendBuffer::TrendBuffer(int capacity) : m_capacity(std::max(1, capacity)) {}

void TrendBuffer::add(qint64 ms, double value, const QString& status)
{
    Sample sample;
    sample.ms = ms;
    sample.value = value;
    sample.status = statusIndex(status);
    sample.quality = qualityOf(status);
    // Values of one take make one point: the last one counts.
    if (!m_sealed && m_size > 0) {
        Sample& last = slot(m_size - 1);
        if (last.ms == ms && last.status == sample.status) {
            last.value = value;
            return;
        }
    }
    push(sample);
}

void TrendBuffer::addBreak(qint64 ms)
{
    if (m_size == 0 || at(m_size - 1).quality == Break)
        return;
    Sample sample;
    sample.ms = ms;
    sample.value = std::nan("");
    push(sample);
}

void TrendBuffer::push(const Sample& sample)
{
    while (m_size > 0 && at(0).ms < sample.ms - kSpanMs) {
        m_first = (m_first + 1) % int(m_ring.size());
        --m_size;
    }
    const int allocated = int(m_ring.size());
    if (m_size < allocated) {
        slot(m_size) = sample;
        ++m_size;
    } else if (allocated < m_capacity) {
        // Still growing: in order again, then room for twice as many, up to the capacity.
        std::rotate(m_ring.begin(), m_ring.begin() + m_first, m_ring.end());
        m_first = 0;
        if (m_ring.capacity() == m_ring.size())
            m_ring.reserve(size_t(std::min(m_capacity, std::max(1024, 2 * allocated))));
        m_ring.push_back(sample);
        ++m_size;
    } else {
        m_ring[size_t(m_first)] = sample;
        m_first = (m_first + 1) % allocated;
    }
    ++m_added;
    m_sealed = false;
}

TrendBuffer::Sample& TrendBuffer::slot(int i)
{
    return m_ring[size_t((m_first + i) % int(m_ring.size()))];
}

const QString& TrendBuffer::statusName(quint16 status)
{
    const QStringList& names = statusNames();
    return names.at(status < names.size() ? status : 0);
}

TrendBuffer::Quality TrendBuffer::qualityOf(const QString& status)
{
    if (status.startsWith(QLatin1String("Good")))
        return Good;
    if (status.startsWith(QLatin1String("Uncertain")))
        return Uncertain;
    return Bad;
}

bool TrendBuffer::writeCsv(QIODevice& out, const QStringList& names,
                           const std::vector<const TrendBuffer*>& buffers)
{
    struct Row
    {
        qint64 ms;
        int series;
        int index;
    };
    std::vector<Row> rows;
    for (size_t s = 0; s < buffers.size(); ++s)
        for (int i = 0; i < buffers[s]->size(); ++i)
            if (buffers[s]->at(i).quality != Break)
                rows.push_back({buffers[s]->at(i).ms, int(s), i});
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.ms < b.ms; });

    // A byte order mark, so that a spreadsheet reads the names as UTF-8.
    QByteArray text =
        QByteArrayLiteral("\xEF\xBB\xBF") + QStringLiteral("Время;Тег;Значение;Качество\n").toUtf8();
    for (const Row& row : rows) {
        const Sample& sample = buffers[size_t(row.series)]->at(row.index);
        text += QDateTime::fromMSecsSinceEpoch(sample.ms)
                    .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"))
                    .toUtf8();
        text += ';' + names.at(row.series).toUtf8() + ';';
        text += QByteArray::number(sample.value, 'g', QLocale::FloatingPointShortest) + ';' +
                statusName(sample.status).toUtf8() + '\n';
        if (text.size() > (1 << 20)) {
            if (out.write(text) != text.size())
                return false;
            text.clear();
        }
    }
    return out.write(text) == text.size();
}
