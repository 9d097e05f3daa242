#include "views/diagnosticsview.h"

#include "model/diagnosticnames.h"
#include "views/cliptooltipdelegate.h"

#include <QDateTime>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

using namespace DiagnosticNames;

namespace {

const char* const kCaptions[kVariableCount] = {"Состояние",
                                               "Связь",
                                               "Запросов",
                                               "Ответов",
                                               "Таймаутов",
                                               "Ответов с исключением",
                                               "Среднее время ответа, мс",
                                               "Наибольшее время ответа, мс",
                                               "Последняя ошибка",
                                               "Время последней ошибки"};
const QString kNothing = QStringLiteral("—");

QTableWidgetItem* cell(const QString& text)
{
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    return item;
}

QString shown(int variable, const QVariant& value)
{
    switch (variable) {
    case State:
    case Link:
        return DiagnosticsView::stateText(value.toString());
    case MeanResponseMs:
    case MaxResponseMs:
        return QString::number(value.toDouble(), 'f', 1);
    case LastError:
        return value.toString().isEmpty() ? kNothing : value.toString();
    case LastErrorTime: {
        const QDateTime at = value.toDateTime();
        return at.isValid() ? at.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")) : kNothing;
    }
    default:
        return value.toString();
    }
}

} // namespace

DiagnosticsView::DiagnosticsView(QWidget* parent)
    : QWidget(parent), m_title(new QLabel(this)), m_message(new QLabel(this)), m_table(new QTableWidget(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 4, 0, 0);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setObjectName("diagnosticsTitle");
    m_message->setObjectName("diagnosticsMessage");
    m_message->setWordWrap(true);
    m_message->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_table->setObjectName("diagnosticsTable");
    m_table->setColumnCount(2);
    m_table->setHorizontalHeaderLabels({QStringLiteral("Показатель"), QStringLiteral("Значение")});
    m_table->verticalHeader()->setVisible(false);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    ClipTooltipDelegate::install(m_table);
    m_table->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(m_title);
    layout->addWidget(m_message);
    layout->addWidget(m_table, 1);
    showMessage(QString());
}

void DiagnosticsView::showItem(bool channel, const QString& fullName)
{
    m_fullName = fullName;
    m_title->setText(
        (channel ? QStringLiteral("Диагностика канала ") : QStringLiteral("Диагностика устройства ")) +
        fullName);
    m_message->hide();
    m_rows.clear();
    m_table->clearContents();
    m_table->setRowCount(0);
    for (int v = 0; v < kVariableCount; ++v) {
        if (v == Link && !channel)
            continue;
        const int row = m_table->rowCount();
        m_table->insertRow(row);
        m_table->setItem(row, 0, cell(QString::fromUtf8(kCaptions[v])));
        m_table->setItem(row, 1, cell(QString()));
        m_rows.insert(QString::fromLatin1(kVariables[v]), row);
    }
    ClipTooltipDelegate::fitColumns(m_table);
    // Every row in sight: the splitter above gives the view no less.
    m_table->setMinimumHeight(m_table->horizontalHeader()->sizeHint().height() +
                              m_table->rowCount() * m_table->verticalHeader()->defaultSectionSize() +
                              2 * m_table->frameWidth());
    m_table->show();
    setMaximumHeight(QWIDGETSIZE_MAX);
}

void DiagnosticsView::showMessage(const QString& text)
{
    m_fullName.clear();
    m_rows.clear();
    m_title->setText(QStringLiteral("Диагностика"));
    m_message->setText(text);
    m_message->show();
    m_table->hide();
    setMaximumHeight(sizeHint().height());
}

QStringList DiagnosticsView::ids() const
{
    QStringList ids;
    for (auto it = m_rows.constBegin(); it != m_rows.constEnd(); ++it)
        ids << m_fullName + '.' + it.key();
    ids.sort();
    return ids;
}

void DiagnosticsView::setValue(const QString& id, const QVariant& value, const QString& status)
{
    if (m_fullName.isEmpty() || !id.startsWith(m_fullName + '.'))
        return;
    const QString name = id.mid(m_fullName.size() + 1);
    const auto row = m_rows.constFind(name);
    if (row == m_rows.constEnd())
        return;
    int variable = 0;
    while (variable < kVariableCount && name != QLatin1String(kVariables[variable]))
        ++variable;
    const bool good = status == QLatin1String("Good") && value.isValid();
    m_table->item(*row, 1)->setText(good ? shown(variable, value) : status);
}

QString DiagnosticsView::stateText(const QString& state)
{
    static const QHash<QString, QString> texts = {
        {kPolled, QStringLiteral("опрашивается")},
        {kDemoted, QStringLiteral("не отвечает, опрашивается реже")},
        {kNoLink, QStringLiteral("нет связи")},
        {kStopped, QStringLiteral("обмен остановлен")},
        {kEmulated, QStringLiteral("эмуляция")},
        {kNotPolled, QStringLiteral("не опрашивается")},
        {kConnected, QStringLiteral("установлена")},
        {kConnecting, QStringLiteral("устанавливается")},
        {kPortError, QStringLiteral("ошибка порта")},
    };
    return texts.value(state, state);
}
