#include "views/trendview.h"

#include "ui_trendview.h"

#include "app/logging.h"
#include "config/configwriter.h"

#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

// Sixteen colours that stay apart on white, also for the colour-blind in the first eight.
const QRgb kPalette[TrendView::kMaxSeries] = {
    0x1f77b4, 0xff7f0e, 0x2ca02c, 0xd62728, 0x9467bd, 0x8c564b, 0xe377c2, 0x7f7f7f,
    0xbcbd22, 0x17becf, 0x393b79, 0x637939, 0x8c6d31, 0x843c39, 0x7b4173, 0x3182bd,
};
const qint64 kSpans[] = {60 * 1000, 5 * 60 * 1000, 15 * 60 * 1000, TrendBuffer::kSpanMs};
// Redrawing more often than a pixel of the time axis passes shows nothing new;
// five times a second moves smoothly enough for the eye at half the cost of
// every refresh of the monitoring, and the present moves on at least once a
// second. Every point is drawn whenever the plot is.
const qint64 kFastestReplotMs = 200;
const qint64 kSlowestReplotMs = 1000;
// Ticks of the monitoring come this much early now and then.
const qint64 kTickSlackMs = 20;

// A float the way it was sent: 1.3f stays 1.3, not 1.2999999523162842.
double number(const QVariant& value)
{
    if (value.typeId() != QMetaType::Float)
        return value.toDouble();
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value.toFloat());
    return std::strtod(std::string(text, written.ptr).c_str(), nullptr);
}

double seconds(qint64 ms)
{
    return double(ms) / 1000.0;
}

} // namespace

struct TrendView::Series
{
    QString name;
    QColor colour;
    TrendBuffer buffer;
    // Good values as a held line; bad and uncertain ones as marks where the line breaks.
    QCPGraph* line = nullptr;
    QCPGraph* uncertain = nullptr;
    QCPGraph* bad = nullptr;
    quint64 plotted = 0;
    // The line holds its last good value up to the present with one extra point.
    double lastKey = 0;
    bool held = false;
};

TrendView::TrendView(QWidget* parent) : QWidget(parent), ui(new Ui_TrendView)
{
    ui->setupUi(this);
    QCustomPlot* plot = ui->plot;
    auto ticker = QSharedPointer<QCPAxisTickerDateTime>::create();
    ticker->setDateTimeFormat(QStringLiteral("hh:mm:ss"));
    plot->xAxis->setTicker(ticker);
    plot->setInteractions(QCP::iRangeDrag | QCP::iRangeZoom);
    plot->setNoAntialiasingOnDrag(true);
    // The legend stands right of the plot, out of the way of the lines, at the top.
    auto* side = new QCPLayoutGrid;
    plot->plotLayout()->addElement(0, 1, side);
    plot->plotLayout()->setColumnStretchFactor(1, 0.001);
    side->addElement(0, 0, plot->legend);
    side->addElement(1, 0, new QCPLayoutElement(plot));
    side->setRowStretchFactor(0, 0.001);
    plot->legend->setVisible(true);
    plot->legend->setBorderPen(Qt::NoPen);
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    plot->xAxis->setRange(seconds(now - spanMs()), seconds(now));

    // A range the user changed stops what changed it by itself.
    connect(plot->xAxis, qOverload<const QCPRange&>(&QCPAxis::rangeChanged), this, [this] {
        if (!m_placing)
            setFollow(false);
    });
    connect(plot->yAxis, qOverload<const QCPRange&>(&QCPAxis::rangeChanged), this,
            [this](const QCPRange& range) {
                if (!m_placing)
                    setAutoScale(false);
                if (!ui->autoScaleBox->isChecked()) {
                    const QSignalBlocker minBlocker(ui->minBox), maxBlocker(ui->maxBox);
                    ui->minBox->setValue(range.lower);
                    ui->maxBox->setValue(range.upper);
                }
            });
    connect(plot, &QCustomPlot::mousePress, this, &TrendView::mousePressed);
    connect(plot, &QCustomPlot::mouseWheel, this, &TrendView::wheelTurned);
    connect(plot, &QCustomPlot::mouseDoubleClick, this, [this] {
        setFollow(true);
        setAutoScale(true);
    });
    connect(ui->followButton, &QToolButton::toggled, this, [this] { refresh(true); });
    connect(ui->spanBox, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        setFollow(true);
        refresh(true);
    });
    connect(ui->autoScaleBox, &QCheckBox::toggled, this, [this](bool automatic) {
        ui->minBox->setEnabled(!automatic);
        ui->maxBox->setEnabled(!automatic);
        if (automatic) {
            refresh(true);
            return;
        }
        const QSignalBlocker minBlocker(ui->minBox), maxBlocker(ui->maxBox);
        ui->minBox->setValue(ui->plot->yAxis->range().lower);
        ui->maxBox->setValue(ui->plot->yAxis->range().upper);
    });
    for (QDoubleSpinBox* box : {ui->minBox, ui->maxBox})
        connect(box, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &TrendView::applyManualScale);
    connect(ui->exportButton, &QPushButton::clicked, this, &TrendView::exportCsv);
    connect(ui->clearButton, &QPushButton::clicked, this, &TrendView::removeAll);
    // Nothing to show until a tag is chosen.
    hide();
}

TrendView::~TrendView()
{
    delete ui;
}

bool TrendView::addSeries(const QString& fullName)
{
    if (shows(fullName))
        return true;
    if (m_series.size() >= size_t(kMaxSeries))
        return false;
    auto series = std::make_unique<Series>();
    series->name = fullName;
    for (QRgb rgb : kPalette) {
        const bool taken = std::any_of(m_series.begin(), m_series.end(),
                                       [rgb](const auto& s) { return s->colour.rgb() == QColor(rgb).rgb(); });
        if (!taken) {
            series->colour = QColor(rgb);
            break;
        }
    }
    QCustomPlot* plot = ui->plot;
    series->line = plot->addGraph();
    // A pen of one pixel: a wider one takes Qt's general stroker, ten times slower.
    series->line->setPen(QPen(series->colour, 1));
    series->line->setLineStyle(QCPGraph::lsStepLeft);
    series->uncertain = plot->addGraph();
    series->bad = plot->addGraph();
    for (auto [graph, shape] : {std::pair{series->uncertain, QCPScatterStyle::ssCircle},
                                std::pair{series->bad, QCPScatterStyle::ssCross}}) {
        graph->setLineStyle(QCPGraph::lsNone);
        graph->setScatterStyle(QCPScatterStyle(shape, series->colour, 7));
        graph->removeFromLegend();
    }
    m_byName.insert(fullName, series.get());
    m_series.push_back(std::move(series));
    updateLegendNames();
    show();
    refresh(true);
    return true;
}

void TrendView::addKnownValue(const QString& fullName, double value, const QString& status, qint64 ms)
{
    Series* series = m_byName.value(fullName);
    if (!series || series->buffer.size() > 0)
        return;
    series->buffer.add(ms, value, status);
    plotNew(*series);
    series->buffer.seal();
    refresh(true);
}

void TrendView::removeSeries(const QString& fullName)
{
    Series* series = m_byName.take(fullName);
    if (!series)
        return;
    for (QCPGraph* graph : {series->line, series->uncertain, series->bad})
        ui->plot->removeGraph(graph);
    m_series.erase(std::find_if(m_series.begin(), m_series.end(),
                                [series](const auto& s) { return s.get() == series; }));
    updateLegendNames();
    if (m_series.empty())
        hide();
    refresh(true);
}

void TrendView::removeAll()
{
    for (const QString& name : names())
        removeSeries(name);
}

QStringList TrendView::names() const
{
    QStringList out;
    for (const auto& series : m_series)
        out << series->name;
    return out;
}

const TrendBuffer* TrendView::buffer(const QString& fullName) const
{
    const Series* series = m_byName.value(fullName);
    return series ? &series->buffer : nullptr;
}

void TrendView::record(const QList<QList<QVariant>>& batch, qint64 ms)
{
    if (m_series.empty())
        return;
    for (const QList<QVariant>& message : batch) {
        if (message.size() < 5)
            continue;
        const auto found = m_byName.constFind(message.at(3).toString());
        if (found != m_byName.constEnd())
            (*found)->buffer.add(ms, number(message.at(1)), message.at(2).toString());
    }
    const double now = seconds(ms);
    for (const auto& series : m_series) {
        plotNew(*series);
        series->buffer.seal();
        // A value stands until the next one comes: the line goes on to the present.
        const TrendBuffer& buffer = series->buffer;
        if (buffer.size() > 0 && buffer.at(buffer.size() - 1).quality == TrendBuffer::Good &&
            now > series->lastKey) {
            series->line->addData(now, buffer.at(buffer.size() - 1).value);
            series->held = true;
        }
    }
    refresh();
}

void TrendView::breakLines(qint64 ms)
{
    for (const auto& series : m_series) {
        series->buffer.addBreak(ms);
        plotNew(*series);
        series->buffer.seal();
    }
}

void TrendView::plotNew(Series& series)
{
    const TrendBuffer& buffer = series.buffer;
    const quint64 fresh = buffer.added() - series.plotted;
    if (series.held) {
        series.line->data()->removeAfter(series.lastKey);
        series.held = false;
    }
    if (fresh == 0)
        return;
    for (int i = buffer.size() - int(std::min<quint64>(fresh, quint64(buffer.size()))); i < buffer.size();
         ++i) {
        const TrendBuffer::Sample& sample = buffer.at(i);
        const double key = seconds(sample.ms);
        series.line->addData(key, sample.quality == TrendBuffer::Good ? sample.value : qQNaN());
        if (sample.quality == TrendBuffer::Uncertain)
            series.uncertain->addData(key, sample.value);
        else if (sample.quality == TrendBuffer::Bad)
            series.bad->addData(key, sample.value);
        series.lastKey = key;
        if (m_undrawnFrom == 0 || key < m_undrawnFrom)
            m_undrawnFrom = key;
    }
    series.plotted = buffer.added();
    // The plot keeps what the buffer keeps.
    const double oldest = seconds(buffer.at(0).ms);
    for (QCPGraph* graph : {series.line, series.uncertain, series.bad})
        graph->data()->removeBefore(oldest);
}

qint64 TrendView::spanMs() const
{
    return kSpans[std::clamp(ui->spanBox->currentIndex(), 0, int(std::size(kSpans)) - 1)];
}

void TrendView::refresh(bool force)
{
    if (!isVisible())
        return;
    QCustomPlot* plot = ui->plot;
    const bool follow = ui->followButton->isChecked();
    if (!force) {
        const bool newInView = m_undrawnFrom != 0 && m_undrawnFrom <= plot->xAxis->range().upper;
        if (!follow && !newInView) {
            m_undrawnFrom = 0;
            return;
        }
        const int width = std::max(1, plot->axisRect()->width());
        const qint64 shownMs = follow ? spanMs() : qint64(plot->xAxis->range().size() * 1000);
        const qint64 interval = std::clamp(shownMs / width, kFastestReplotMs, kSlowestReplotMs);
        if (m_sinceReplot.isValid() && m_sinceReplot.elapsed() + kTickSlackMs < interval)
            return;
    }
    m_placing = true;
    if (follow) {
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        plot->xAxis->setRange(seconds(now - spanMs()), seconds(now));
    }
    if (ui->autoScaleBox->isChecked())
        fitValues();
    m_placing = false;
    plot->replot();
    m_sinceReplot.start();
    m_undrawnFrom = 0;
}

void TrendView::fitValues()
{
    const QCPRange shown = ui->plot->xAxis->range();
    bool any = false;
    QCPRange values;
    for (const auto& series : m_series)
        for (QCPGraph* graph : {series->line, series->uncertain, series->bad}) {
            bool found = false;
            const QCPRange range = graph->getValueRange(found, QCP::sdBoth, shown);
            if (!found)
                continue;
            values = any ? QCPRange(std::min(values.lower, range.lower), std::max(values.upper, range.upper))
                         : range;
            any = true;
        }
    if (!any)
        return;
    // A margin of a twentieth; a flat line gets one of its own size (or 1 at zero).
    double margin = values.size() * 0.05;
    if (margin <= 0)
        margin = std::max(std::fabs(values.upper) * 0.05, 1e-9) + (values.upper == 0 ? 1 : 0);
    ui->plot->yAxis->setRange(values.lower - margin, values.upper + margin);
}

void TrendView::setFollow(bool follow)
{
    ui->followButton->setChecked(follow);
}

void TrendView::setAutoScale(bool automatic)
{
    ui->autoScaleBox->setChecked(automatic);
}

void TrendView::applyManualScale()
{
    if (ui->autoScaleBox->isChecked() || ui->minBox->value() >= ui->maxBox->value())
        return;
    m_placing = true;
    ui->plot->yAxis->setRange(ui->minBox->value(), ui->maxBox->value());
    m_placing = false;
    ui->plot->replot();
}

void TrendView::mousePressed(QMouseEvent* event)
{
    // Dragging moves the time; with Ctrl the values; with Shift it marks an area to zoom into.
    const bool values = event->modifiers() & Qt::ControlModifier;
    ui->plot->setSelectionRectMode(event->modifiers() & Qt::ShiftModifier ? QCP::srmZoom : QCP::srmNone);
    ui->plot->axisRect()->setRangeDrag(values ? Qt::Vertical : Qt::Horizontal);
}

void TrendView::wheelTurned(QWheelEvent* event)
{
    ui->plot->axisRect()->setRangeZoom(event->modifiers() & Qt::ControlModifier ? Qt::Vertical
                                                                                : Qt::Horizontal);
}

void TrendView::updateLegendNames()
{
    // The shortest tail of the full name that no other tag on the plot shares.
    QList<QStringList> parts;
    for (const auto& series : m_series)
        parts << series->name.split('.');
    for (qsizetype i = 0; i < parts.size(); ++i) {
        qsizetype keep = 1;
        const auto tail = [&](qsizetype s) {
            return parts[s].mid(std::max<qsizetype>(0, parts[s].size() - keep));
        };
        for (; keep < parts[i].size(); ++keep) {
            bool shared = false;
            for (qsizetype j = 0; j < parts.size() && !shared; ++j)
                shared = j != i && tail(j) == tail(i);
            if (!shared)
                break;
        }
        m_series[size_t(i)]->line->setName(tail(i).join('.'));
    }
}

void TrendView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refresh(true);
}

void TrendView::exportCsv()
{
    if (m_series.empty())
        return;
    const QString suggested = QDir::home().filePath(
        QDateTime::currentDateTime().toString(QStringLiteral("'тренд_'yyyy-MM-dd_hh-mm-ss'.csv'")));
    QString path = QFileDialog::getSaveFileName(this, "Экспорт графика", suggested, "Файлы CSV (*.csv)");
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".csv");
    QStringList shownNames;
    std::vector<const TrendBuffer*> buffers;
    for (const auto& series : m_series) {
        shownNames << series->name;
        buffers.push_back(&series->buffer);
    }
    const CConfigWriter::Result result = CConfigWriter::Replace(
        path, [&](QIODevice& out) { return TrendBuffer::writeCsv(out, shownNames, buffers); });
    if (result != CConfigWriter::Saved) {
        // The points stay here; an older file of that name stays as it was.
        const QString text = QStringLiteral("Не удалось сохранить график в файл %1. Точки графика остаются в "
                                            "программе, выберите другой файл.")
                                 .arg(QDir::toNativeSeparators(path));
        VLOG_WARNING().noquote() << text;
        QMessageBox::warning(this, "Ошибка", text);
        return;
    }
    VLOG_INFO().noquote() << QStringLiteral("График сохранён в файл %1").arg(QDir::toNativeSeparators(path));
}
