#pragma once

#include "app/mainwindow.h"

// The tests' door to the main window's state; the window befriends it.
struct MainWindowProbe
{
    static CTreeItemRoot& root(MainWindow& w) { return w.m_root; }
    static std::map<QTreeWidgetItem*, CItem*>& treeItems(MainWindow& w) { return w.m_treeItems; }
    static std::map<QString, CItem*>& groups(MainWindow& w) { return w.m_groups; }
    static QString& configPath(MainWindow& w) { return w.m_configPath; }
    static bool& configOpen(MainWindow& w) { return w.m_configOpen; }
    static bool& monitoring(MainWindow& w) { return w.m_monitoring; }
    static bool& dirty(MainWindow& w) { return w.m_dirty; }
    static bool& connected(MainWindow& w) { return w.m_connected; }
    static bool& plainFormat(MainWindow& w) { return w.m_plainFormat; }
    static int& tagCount(MainWindow& w) { return w.m_tagCount; }
    static QList<QString>& infoChannel(MainWindow& w) { return w.m_infoChannel; }
    static QList<QString>& infoDevice(MainWindow& w) { return w.m_infoDevice; }
    static QList<QString>& infoGroup(MainWindow& w) { return w.m_infoGroup; }
    static QList<QString>& infoTag(MainWindow& w) { return w.m_infoTag; }
    static std::vector<CItem*>& clipboard(MainWindow& w) { return w.m_clipboard; }
    static TableModelVariable* tagModel(MainWindow& w) { return w.m_tagModel; }
    static TableModelMonitoring* monitoringModel(MainWindow& w) { return w.m_monitoringModel; }
    static OPCUAWrapper*& client(MainWindow& w) { return w.m_client; }
    static QMap<int, QList<QString>>& subscriptionRows(MainWindow& w) { return w.m_subscriptionRows; }
    static QTimer* monitoringTimer(MainWindow& w) { return w.m_monitoringTimer; }
    static QLabel* statusLabel(MainWindow& w) { return w.m_statusLabel; }
    static QLabel* readStatusLabel(MainWindow& w) { return w.m_readStatusLabel; }
    static const QString& serverOutput(MainWindow& w) { return w.m_serverOutput.text(); }
    static QProcess* serverProcess(MainWindow& w) { return w.m_serverProcess; }
};
