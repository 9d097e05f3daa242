// The tag table for one group of 1,000 tags: selecting the group (model fill
// plus the first paint) and sorting by each column, against the plain way of
// showing the same texts, a QStandardItemModel in the same kind of view.
// Ours and the peer's in turn; the median of the runs.
#include "bench/benchsupport.h"
#include "model/dataginfo.h"
#include "model/groupinfo.h"
#include "views/tablemodelvariable.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QStandardItemModel>
#include <QTableView>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

const int TagCount = 1000;

// Paints the view once so the cost of the visible cells is counted.
void paint(QTableView& view)
{
    view.viewport()->repaint();
    QApplication::processEvents();
}

void prepare(QTableView& view, QAbstractItemModel& model)
{
    view.setModel(&model);
    view.setSelectionBehavior(QAbstractItemView::SelectRows);
    view.setSortingEnabled(true);
    view.resize(1280, 900);
    view.show();
    QApplication::processEvents();
}

// The slowest sort over every column, both ways.
double slowestSortMs(QTableView& view, int columns)
{
    double worst = 0;
    QElapsedTimer timer;
    for (int col = 0; col < columns; ++col) {
        for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
            timer.restart();
            view.sortByColumn(col, order);
            paint(view);
            worst = std::max(worst, timer.nsecsElapsed() / 1e6);
        }
    }
    return worst;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    CGroupInfo group;
    for (int i = 0; i < TagCount; ++i) {
        auto* tag = new CDATagInfo(nullptr);
        tag->SetName("Tag_" + std::to_string(i));
        tag->Addr = uint16_t(1 + (i * 7919) % 65535);
        tag->RegType = en_ModbusRegType(i % 4);
        tag->bWrite = i % 3 != 0;
        group.AppendChild(tag);
    }
    const QString key = QStringLiteral("Channel_0.Device_0.Group_0");
    const std::map<QString, CItem*> groups{{key, &group}};

    // The texts our table shows, for the peer to show the plain way.
    QVector<QStringList> texts;
    int columns = 0;
    {
        TableModelVariable model;
        model.setNameGroup(key);
        model.setMapItem(groups);
        columns = model.columnCount();
        for (int r = 0; r < model.rowCount(); ++r) {
            QStringList row;
            for (int c = 0; c < columns; ++c)
                row << model.index(r, c).data().toString();
            texts << row;
        }
    }

    BenchSupport::Runs fill, sort;
    for (int i = 0, n = BenchSupport::RunCount(); i < n; ++i) {
        double oursFill, oursSort, peerFill, peerSort;
        {
            TableModelVariable model;
            QTableView view;
            prepare(view, model);
            QElapsedTimer timer;
            timer.start();
            model.setNameGroup(key);
            model.setMapItem(groups);
            view.reset();
            paint(view);
            oursFill = model.rowCount() == TagCount ? timer.nsecsElapsed() / 1e6 : -1;
            oursSort = slowestSortMs(view, columns);
        }
        {
            QStandardItemModel model;
            QTableView view;
            prepare(view, model);
            QElapsedTimer timer;
            timer.start();
            model.setColumnCount(columns);
            for (const QStringList& row : texts) {
                QList<QStandardItem*> cells;
                for (const QString& text : row)
                    cells << new QStandardItem(text);
                model.appendRow(cells);
            }
            paint(view);
            peerFill = timer.nsecsElapsed() / 1e6;
            peerSort = slowestSortMs(view, columns);
        }
        fill.Add(oursFill, peerFill);
        sort.Add(oursSort, peerSort);
    }
    std::printf("fill %d tags: %.1f ms, plain model %.1f ms\n", TagCount, fill.Ours(), fill.Peer());
    std::printf("sort %d tags, slowest column: %.1f ms, plain model %.1f ms\n", TagCount, sort.Ours(),
                sort.Peer());
    bool met = BenchSupport::ReportAgainstPeer("fill the tag table, 1,000 tags (peer: QStandardItemModel)",
                                               fill, "ms", 1.0);
    met &= BenchSupport::ReportAgainstPeer("sort the tag table, slowest column (peer: QStandardItemModel)",
                                           sort, "ms", 1.5);
    return met ? 0 : 1;
}
