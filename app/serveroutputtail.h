#pragma once

#include <QByteArray>
#include <QString>
#include <QStringDecoder>

// What the gateway has printed since it was started, as far back as the last
// two million characters (about 4 MB): when more arrives the oldest lines go,
// so that a chatty gateway, or a client making it chatty, can't grow the
// program without bound.
class ServerOutputTail
{
public:
    static constexpr qsizetype kLimit = 2 * 1024 * 1024;

    // Takes the next bytes of the gateway's output (UTF-8, lines cut anywhere).
    void append(const QByteArray& bytes);
    void clear();
    const QString& text() const { return m_text; }
    // True once lines were dropped since the last clear.
    bool cut() const { return m_cut; }
    // The text for the output window, which says so when lines were dropped.
    QString shown() const;

private:
    QString m_text;
    QStringDecoder m_decoder{QStringDecoder::Utf8};
    bool m_cut = false;
};
