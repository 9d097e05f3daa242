#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <vector>

class QIODevice;

// The recent values of one tag on the trend: a ring, grown as points come up
// to a fixed capacity, that holds the last hour at the monitoring's ten takes
// a second. Values of one take (the same time) make one point, unless the
// status changes; points older than an hour or past the capacity are dropped,
// the oldest first.
class TrendBuffer
{
public:
    // Status of a point; Break marks where monitoring stopped, with no value.
    enum Quality : quint8
    {
        Good,
        Uncertain,
        Bad,
        Break,
    };
    struct Sample
    {
        qint64 ms = 0;
        double value = 0;
        quint16 status = 0; // index into statusName()
        Quality quality = Break;
    };

    static constexpr qint64 kSpanMs = 3600 * 1000;
    // An hour of takes every 100 ms, and a tenth more for timer jitter and changes of status.
    static constexpr int kCapacity = 40000;

    explicit TrendBuffer(int capacity = kCapacity);

    void add(qint64 ms, double value, const QString& status);
    void addBreak(qint64 ms);
    // The points so far are final: a later value of the same time makes a point of its own.
    void seal() { m_sealed = true; }

    int size() const { return m_size; }
    // Oldest first.
    const Sample& at(int i) const { return m_ring[size_t((m_first + i) % int(m_ring.size()))]; }
    // Points ever added, dropped ones included: what is new since a count taken earlier.
    quint64 added() const { return m_added; }

    static const QString& statusName(quint16 status);
    static Quality qualityOf(const QString& status);

    // The points of the buffers as rows "time;tag;value;status" in order of
    // time, under a header line; false when the device took not all of it.
    static bool writeCsv(QIODevice& out, const QStringList& names,
                         const std::vector<const TrendBuffer*>& buffers);

private:
    void push(const Sample& sample);
    Sample& slot(int i);

    int m_capacity;
    std::vector<Sample> m_ring;
    int m_first = 0;
    int m_size = 0;
    quint64 m_added = 0;
    bool m_sealed = true;
};
