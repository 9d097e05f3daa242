#pragma once

#include "app/serveroutputtail.h"
#include "model/itemdata.h"
#include "model/treeitemroot.h"

#include <QHash>
#include <QList>
#include <QMainWindow>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class CDATagInfo;
class CGroupInfo;
class QLabel;
class QMenu;
class QProcess;
class QTimer;
class QTreeWidgetItem;
class OPCUAWrapper;
struct TagAccess;
class TableModelVariable;
class TableModelMonitoring;
class Ui_MainWindow;

// Runs the node's own Init on devices and tags, and descends.
void ItemInit(CItem* item);

// Tree row types; with the two monitoring modes they are also the modes of
// setEnabledToolbar. Not the node kind (enItemType).
enum enTreeItemKind
{
    ToolbarMonitoringOn = 5,
    ToolbarMonitoringOff = 6,
    TreeItemRoot = 1001,
    TreeItemChannel = 1002,
    TreeItemDevice = 1003,
    TreeItemGroup = 1004,
};

// The one controller of the program: owns the tree, the widgets, the table
// models, the gateway process and the pointer to the OPC UA client. Every user
// command is one of its slots; the slots are split by topic over several
// source files.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    void closeEvent(QCloseEvent* event) override;
    void setEnabledToolbar(int mode);
    CItem* GetHostElement(CItem* item, enItemType kind);
    void runInBackground(std::function<void()> work);
    static QString ipAddrIntToQstring(int addr);
    void openHelpUnix();
    // A file that lies beside the program (its helpers and guide), wherever it
    // was started from; the path is quoted for the shell.
    static QString besideProgram(const QString& name);
    int CreateTreeItems(CItem* item, QTreeWidgetItem* parent);
    // Worker bodies of the file commands.
    void openCSVFile(QString path);
    int saveConfig();
    // Writes the start parameters into the configuration's tail.
    int saveParametrsStartServer(QList<QString> args);
    // Worker bodies of the monitoring switch; both end with signalCloseProgressBar.
    int monitoringOn(CGroupInfo* group, int interval, std::string name);
    int monitoringOff(CItem* item);
    // Worker body of the tag add: appends the tag and the rest of the series.
    void threadAddTags(CItem* group, CDATagInfo* tag);
    // What the tag commands send to a connected server besides the dialog's
    // list: each further tag of an add, in decimal, and a pasted tag's path.
    static QList<QString> nextTagInfo(const QString& group, const CDATagInfo* tag);
    static QList<QString> pastedTagInfo(CItem* clone);
    static QList<QString> findKeysContainingSubstring(std::map<QString, CItem*>& map, const QString& sub);
    // The commands of the monitoring table for a row (and the rows selected
    // with it): the trend and, for a writable tag, writing a value. Empty
    // while not monitoring.
    void fillMonitoringMenu(QMenu& menu, int row);

signals:
    void signalCloseProgressBar(int err);
    void signalSetLabelProgressBar(QString newLabel);
    void signalUpdateData(int row, std::vector<QString>& lst);
    void signalTagAdd(int count, int res);

public slots:
    void slotTagAdd(int count, int res);
    void on_open_action_triggered();
    void on_treeWidget_customContextMenuRequested(const QPoint& pos);
    void on_treeWidget_itemSelectionChanged();
    void on_add_channel_action_triggered();
    void on_edit_action_triggered();
    void on_delete_action_triggered();
    void on_copy_action_triggered();
    void on_paste_action_triggered();
    void on_add_device_action_triggered();
    void on_add_group_action_triggered();
    void on_add_tag_action_triggered();
    void tag_copy_action_triggered();
    void tag_paste_action_triggered();
    void tableWidget_2_customContextMenuRequested(const QPoint& pos);
    void tag_edit_action_triggered();
    void tag_delete_action_triggered();
    void on_save_action_triggered();
    void on_about_action_triggered();
    void on_run_server_action_triggered();
    void on_showOutput_action_triggered();
    void on_stop_server_action_triggered();
    void on_close_action_triggered();
    void on_action_triggered();
    void on_monitoring_action_triggered();
    void slotDataChange(QList<QVariant> message);
    void slotInfoChannel(QList<QString> info, bool flagSaveEnable);
    void slotInfoDevice(QList<QString> info, bool flagSaveEnable);
    void slotInfoGroup(QList<QString> info, bool flagSaveEnable);
    void slotInfoTag(QList<QString> info, bool flagSaveEnable);
    void slotInfoCountTag(int count);
    void slotEditItemTableDoubleClick();
    void slotEditTagTableDoubleClick();
    void slotServerOutput();
    void on_create_certiifcates_triggered();
    void slotCreateCertificates(QMap<QString, QString> mapSettingsCert);
    void slotRunServer(QString dirTrust, QString der, QString pem);
    void on_action_addUsers_triggered();
    void on_action_help_triggered();
    void on_action_export_conf_triggered();
    void on_action_import_conf_triggered();
    void slotDisconnect();
    // The client's session died: monitoring ends, the user is told, and the
    // program is no longer connected.
    void slotConnectionLost(QString status);
    void slotMonitoringMenu(const QPoint& pos);
    // The gateway's answer to a value written from the monitoring table.
    void slotWriteAnswered(QString fullName, QString value, QString status);
    // A value of the gateway's diagnostics, of the selected item or of the
    // state of a device of the tree.
    void slotDiagnostics(int watch, QString id, QVariant value, QString status);
    void slotNoDiagnostics();

private:
    // Runs work on a detached thread while the busy dialog waits for the
    // owner's signalCloseProgressBar (the owner is this window by default).
    void runBusy(const std::function<void()>& work, QObject* owner = nullptr);
    // The root row "Каналы", as the constructor and a new open make it; the
    // caller puts it into the tree, after its children when there are many.
    QTreeWidgetItem* createRootRow();
    void fillPropertyTable(const StrProps& props);
    // A clipboard entry copied, named and appended under host; null if refused.
    CItem* pasteCopy(CItem* host, CItem* entry, bool single);
    // Live values of m_client reach slotDataChange, once.
    void connectClientValues();
    // Called where a value arrives; the refresh timer calls takeArrived, which
    // hands the collected values to slotDataChange on the GUI thread.
    void collectDataChange(QList<QVariant> message);
    void takeArrived();
    // Tells the client which subscriptions' values nobody keeps: those of
    // groups neither collected by the monitoring model nor on the trend.
    void muteUnshown();
    // Empties the collected values; more are collected only when collectMore.
    void dropArrived(bool collectMore = false);
    int runSwitchStep(std::function<void()> work);
    // Monitoring whose session died: nothing is left to delete on the server.
    void endLostMonitoring(const QString& status);
    // Puts text on the status line in place of a connection-lost message.
    void clearConnectionLoss(const QString& text);
    // Drops every way to the nodes below the root (row entries, group keys,
    // clipboard, table models) before those nodes are deleted.
    void forgetNodes();
    // Properties tab to the front, tag and monitoring tabs off.
    void showPropertiesOnly();
    // The question boxes of closing and starting: a QMessageBox::StandardButtons
    // set, with "Отмена" and "Нет" on Cancel and No.
    int askQuestion(const QString& text, int buttons);
    // The node of the selected tree row when that row is a group, else null.
    CItem* selectedGroup();
    // The row of a channel, device or group node (a group also enters
    // m_groups); null for any other node.
    QTreeWidgetItem* addTreeRow(CItem* item, QTreeWidgetItem* parent);
    // Makes a just-added row the only selected one, its parent open.
    void selectNewRow(QTreeWidgetItem* row);
    // The first selected tree row, and the node behind a row; null if none.
    QTreeWidgetItem* selectedRow() const;
    CItem* nodeOf(QTreeWidgetItem* row) const;
    // The monitoring table's context menu.
    void setupCommissioning();
    // The full name of a row of the monitoring table; empty for none.
    QString monitoredName(int row);
    void showOnTrend(const QList<int>& rows);
    void writeValueTo(const QString& fullName, const TagAccess& access, const QString& current);
    void setupDiagnostics();
    // Brings the diagnostics view and the tree's marks up to date with the
    // selection, the tree and the connection, once the command in progress is done.
    void refreshDiagnostics();
    void updateDiagnostics();
    // Device rows whose device is silent or cut off get a mark, the others lose it.
    void markDevices();

    CTreeItemRoot m_root;
    std::map<QTreeWidgetItem*, CItem*> m_treeItems;
    std::map<QString, CItem*> m_groups;
    QString m_configPath;
    QTimer* m_monitoringTimer = nullptr;
    Ui_MainWindow* ui = nullptr;
    QProcess* m_serverProcess = nullptr;
    QLabel* m_statusLabel = nullptr;
    // Beside it: that the file on show was read only in part.
    QLabel* m_readStatusLabel = nullptr;
    std::vector<CItem*> m_clipboard;
    bool m_configOpen = false;
    bool m_monitoring = false;
    QList<QString> m_nodes;
    OPCUAWrapper* m_client = nullptr;
    QTreeWidgetItem* m_monitoredTreeItem = nullptr;
    QList<QString> m_infoChannel;
    QList<QString> m_infoDevice;
    QList<QString> m_infoGroup;
    QList<QString> m_infoTag;
    bool m_dirty = false;
    bool m_saveSeen = false;
    bool m_connected = false;
    bool m_dialogConnected = false;
    int m_tagCount = 1;
    ServerOutputTail m_serverOutput;
    QList<QList<QString>> m_subscribedNames;
    QMap<int, QList<QString>> m_subscriptionRows;
    // Row and group of each subscribed full name, and the group of each
    // subscription, built with m_subscriptionRows.
    QHash<QString, std::pair<int, QString>> m_rowOfName;
    QHash<int, QString> m_groupOfSubscription;
    // The monitoring switch's worker runs; a loss it meets is handled after it.
    bool m_monitoringSwitch = false;
    QString m_lostDuringSwitch;
    QList<QString> m_foundServers;
    QList<QString> m_foundEndpoints;
    QMap<QString, QString> m_certSettings;
    QString m_derPath;
    QString m_pemPath;
    QString m_trustDir;
    std::thread m_iterateThread;
    bool m_plainFormat = false;
    TableModelVariable* m_tagModel = nullptr;
    TableModelMonitoring* m_monitoringModel = nullptr;
    // Values collected where they arrive, until the refresh timer takes them.
    std::mutex m_arrivedMutex;
    QList<QList<QVariant>> m_arrived;
    bool m_collecting = false;
    QTimer* m_diagnosticsRefresh = nullptr;
    // The item whose diagnostics are watched, the state ids of the tree's
    // devices that are watched, and the states they reported.
    QString m_diagnosed;
    QStringList m_watchedStates;
    QHash<QString, QString> m_deviceStates;
    bool m_noDiagnostics = false;

    // Tests read and set the state through this one door.
    friend struct MainWindowProbe;
};
