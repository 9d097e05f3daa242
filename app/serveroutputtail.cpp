#include "app/serveroutputtail.h"

void ServerOutputTail::append(const QByteArray& bytes)
{
    m_text += m_decoder.decode(bytes);
    if (m_text.size() <= kLimit)
        return;
    // A quarter below the limit, so that lines are dropped in batches, not one
    // at every read; whole lines, where a line end can be found.
    const qsizetype from = m_text.size() - kLimit * 3 / 4;
    const qsizetype lineEnd = m_text.indexOf(QLatin1Char('\n'), from);
    m_text.remove(0, lineEnd < 0 ? from : lineEnd + 1);
    m_cut = true;
}

void ServerOutputTail::clear()
{
    m_text.clear();
    m_decoder.resetState();
    m_cut = false;
}

QString ServerOutputTail::shown() const
{
    if (!m_cut)
        return m_text;
    return QStringLiteral("[Показаны последние сообщения сервера: более ранние отброшены, хранятся не более "
                          "%1 символов]\n")
               .arg(kLimit) +
           m_text;
}
