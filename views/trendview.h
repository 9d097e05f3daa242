#pragma once

#include "views/trendbuffer.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QStringList>
#include <QVariant>
#include <QWidget>

#include <memory>
#include <vector>

class QCPGraph;
class QMouseEvent;
class QWheelEvent;
class Ui_TrendView;

// Values of chosen monitored tags over time: one colour and legend entry a
// tag, a time axis that follows the present or stays where the user put it,
// a value scale fitted to what is shown or set by hand. A value with a bad
// status breaks the line and is marked with a cross, an uncertain one with a
// circle. Each tag keeps its last hour in a bounded buffer, which can be saved
// as CSV.
class TrendView : public QWidget
{
    Q_OBJECT
public:
    // As many as the palette has clearly different colours.
    static constexpr int kMaxSeries = 16;

    explicit TrendView(QWidget* parent = nullptr);
    ~TrendView() override;

    bool shows(const QString& fullName) const { return m_byName.contains(fullName); }
    // False when the plot holds kMaxSeries tags already.
    bool addSeries(const QString& fullName);
    // The value a new series starts with: the one shown before it came on the plot.
    void addKnownValue(const QString& fullName, double value, const QString& status, qint64 ms);
    void removeSeries(const QString& fullName);
    QStringList names() const;
    // The points of a shown tag; null for any other.
    const TrendBuffer* buffer(const QString& fullName) const;

    // The values of one refresh of the monitoring, each a list of item id,
    // value, status, full name and subscription, all taken at `ms`.
    void record(const QList<QList<QVariant>>& batch, qint64 ms);
    // Monitoring starts again: the lines do not join the values before.
    void breakLines(qint64 ms);

public slots:
    // Asks for a file and writes the points of every shown tag there.
    void exportCsv();
    void removeAll();

protected:
    void showEvent(QShowEvent* event) override;

private:
    struct Series;

    void plotNew(Series& series);
    // Redraws, no more often than a pixel of the time axis passes.
    void refresh(bool force = false);
    void fitValues();
    void setFollow(bool follow);
    void setAutoScale(bool automatic);
    void applyManualScale();
    void mousePressed(QMouseEvent* event);
    void wheelTurned(QWheelEvent* event);
    void updateLegendNames();
    qint64 spanMs() const;

    Ui_TrendView* ui;
    std::vector<std::unique_ptr<Series>> m_series;
    QHash<QString, Series*> m_byName;
    QElapsedTimer m_sinceReplot;
    // Time of the oldest point not drawn yet, in seconds; 0 when all are drawn.
    double m_undrawnFrom = 0;
    // The view sets the ranges itself: not a change by the user.
    bool m_placing = false;
};
