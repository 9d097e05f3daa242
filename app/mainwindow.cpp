#include "app/mainwindow.h"

#include "app/aboutdialog.h"
#include "app/guithread.h"
#include "app/logging.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/cliptooltipdelegate.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QAbstractButton>
#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <cstdlib>

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), ui(new Ui_MainWindow)
{
    // The icons live in a static library; naming the initializer links them in.
    Q_INIT_RESOURCE(servergui);
    ui->setupUi(this);
    ui->splitter->setStretchFactor(0, 0);
    ui->splitter->setStretchFactor(1, 1);
    // Tables stay readable at any width: one line per row, columns fitted to
    // their contents and resizable, the full text of a cut cell as a tooltip.
    for (QTableView* table : {static_cast<QTableView*>(ui->tableWidget), ui->tableView, ui->tableView_2})
        ClipTooltipDelegate::install(table);

    connect(this, &MainWindow::signalTagAdd, this, &MainWindow::slotTagAdd);

    m_tagModel = new TableModelVariable(this);
    m_monitoringModel = new TableModelMonitoring(this);
    ui->tableView->setModel(m_tagModel);
    ui->tableView_2->setModel(m_monitoringModel);

    m_monitoringTimer = new QTimer(this);
    connect(m_monitoringTimer, &QTimer::timeout, this, [this] {
        takeArrived();
        m_monitoringModel->updateData();
    });

    m_statusLabel = new QLabel("Сервер не запущен", this);
    statusBar()->addWidget(m_statusLabel);
    m_readStatusLabel = new QLabel(this);
    statusBar()->addWidget(m_readStatusLabel);

    setEnabledToolbar(TreeItemRoot);

    ui->treeWidget->setContextMenuPolicy(Qt::CustomContextMenu);
    ui->tableView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(ui->tableView, &QWidget::customContextMenuRequested, this,
            &MainWindow::tableWidget_2_customContextMenuRequested);
    connect(ui->tableView, &QAbstractItemView::doubleClicked, this, &MainWindow::slotEditTagTableDoubleClick);
    connect(ui->tableWidget, &QAbstractItemView::doubleClicked, this,
            &MainWindow::slotEditItemTableDoubleClick);
    setupCommissioning();
    setupDiagnostics();

    // Widget-level shortcuts of the tree: actions of their own, untouched by
    // setEnabledToolbar, so they stay live while the menu commands are off.
    auto addTreeShortcut = [this](const QString& text, const QKeySequence& key, void (MainWindow::*slot)()) {
        auto* a = new QAction(text, ui->treeWidget);
        a->setShortcut(key);
        a->setShortcutContext(Qt::WidgetShortcut);
        connect(a, &QAction::triggered, this, slot);
        ui->treeWidget->addAction(a);
    };
    addTreeShortcut("Копировать", QKeySequence("Ctrl+C"), &MainWindow::on_copy_action_triggered);
    addTreeShortcut("Вставить", QKeySequence("Ctrl+V"), &MainWindow::on_paste_action_triggered);
    addTreeShortcut("Удалить", QKeySequence(Qt::Key_Delete), &MainWindow::on_delete_action_triggered);
    // The same keys in the tag table reach the tag commands: Delete goes the
    // way of the menu command, which hands it on to the tags while the table
    // has the focus. Like the table's context menu they rest while monitoring.
    auto addTableShortcut = [this](const QKeySequence& key, void (MainWindow::*slot)()) {
        auto* a = new QAction(ui->tableView);
        a->setShortcut(key);
        a->setShortcutContext(Qt::WidgetShortcut);
        connect(a, &QAction::triggered, this, [this, slot] {
            if (!m_monitoring)
                (this->*slot)();
        });
        ui->tableView->addAction(a);
    };
    addTableShortcut(QKeySequence("Ctrl+C"), &MainWindow::tag_copy_action_triggered);
    addTableShortcut(QKeySequence("Ctrl+V"), &MainWindow::tag_paste_action_triggered);
    addTableShortcut(QKeySequence(Qt::Key_Delete), &MainWindow::on_delete_action_triggered);

    ui->treeWidget->addTopLevelItem(createRootRow());

    ui->tabWidget->setCurrentIndex(0);
    ui->tabWidget->setTabEnabled(1, false);
    ui->tabWidget->setTabEnabled(2, false);

    m_serverProcess = new QProcess(this);
    m_serverProcess->setReadChannel(QProcess::StandardOutput);
    connect(m_serverProcess, &QProcess::readyReadStandardOutput, this, &MainWindow::slotServerOutput);
}

MainWindow::~MainWindow()
{
    if (m_monitoring)
        on_monitoring_action_triggered();
    if (m_client)
        m_client->disconnectToServer();
    // The tree goes before the widgets: the views must stop reading it first.
    ui->tableView->setModel(nullptr);
    ui->tableView_2->setModel(nullptr);
    delete ui;
}

void MainWindow::setEnabledToolbar(int mode)
{
    ui->save_action->setEnabled(m_saveSeen);
    ui->save_action->setEnabled(m_configOpen);

    // Columns of the state table: root, channel, device, group, monitoring on.
    enum Column
    {
        Root,
        Channel,
        Device,
        Group,
        MonitoringOn
    };
    Column column;
    switch (mode) {
    case TreeItemRoot:
        column = Root;
        break;
    case TreeItemChannel:
        column = Channel;
        break;
    case TreeItemDevice:
        column = Device;
        break;
    case TreeItemGroup:
    case ToolbarMonitoringOff:
        column = Group;
        break;
    case ToolbarMonitoringOn:
        column = MonitoringOn;
        break;
    default:
        return;
    }
    if (mode == TreeItemChannel || mode == TreeItemDevice || mode == TreeItemGroup)
        m_saveSeen = true;
    if (m_monitoring && mode != ToolbarMonitoringOff)
        column = MonitoringOn;

    struct Row
    {
        QAction* action;
        bool enabled[5];
    };
    const Row rows[] = {
        {ui->open_action, {1, 1, 1, 1, 0}},        {ui->action_export_conf, {1, 1, 1, 1, 0}},
        {ui->action_import_conf, {1, 1, 1, 1, 0}}, {ui->copy_action, {0, 1, 1, 1, 0}},
        {ui->paste_action, {0, 1, 1, 1, 0}},       {ui->action, {1, 1, 1, 1, 0}},
        {ui->edit_action, {0, 0, 1, 1, 0}},        {ui->save_action, {m_saveSeen, 1, 1, 1, 0}},
        {ui->add_channel_action, {1, 1, 1, 1, 0}}, {ui->add_device_action, {0, 1, 1, 1, 0}},
        {ui->add_group_action, {0, 0, 1, 1, 0}},   {ui->add_tag_action, {0, 0, 0, 1, 0}},
        {ui->delete_action, {0, 1, 1, 1, 0}},      {ui->monitoring_action, {0, 0, 0, 1, 1}},
    };
    for (const Row& r : rows)
        r.action->setEnabled(r.enabled[column]);
}

CItem* MainWindow::GetHostElement(CItem* item, enItemType kind)
{
    for (CItem* node = item; node; node = node->GetParent()) {
        if (node->GetType() == kind)
            return node;
    }
    return nullptr;
}

void MainWindow::runInBackground(std::function<void()> work)
{
    auto* carrier = new QObject;
    auto* thread = new QThread;
    carrier->moveToThread(thread);
    connect(thread, &QThread::started, carrier, [work, carrier, thread] {
        work();
        carrier->deleteLater();
        thread->quit();
    });
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start(QThread::InheritPriority);
}

QString MainWindow::ipAddrIntToQstring(int addr)
{
    const auto a = static_cast<unsigned>(addr);
    return QString("%1.%2.%3.%4")
        .arg(a & 0xFF)
        .arg((a >> 8) & 0xFF)
        .arg((a >> 16) & 0xFF)
        .arg((a >> 24) & 0xFF);
}

int MainWindow::askQuestion(const QString& text, int buttons)
{
    QMessageBox box(QMessageBox::Question, "Внимание", text, QMessageBox::StandardButtons(buttons), this);
    box.setWindowIcon(QIcon(":/res/images/res/Velmora.ico"));
    if (QAbstractButton* cancel = box.button(QMessageBox::Cancel))
        cancel->setText("Отмена");
    if (QAbstractButton* no = box.button(QMessageBox::No))
        no->setText("Нет");
    return box.exec();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_serverProcess->state() == QProcess::Running) {
        if (askQuestion("Сервер запущен, хотите остановить сервер и выйти?",
                        QMessageBox::Ok | QMessageBox::Cancel) != QMessageBox::Ok) {
            event->ignore();
            return;
        }
        m_serverProcess->kill();
        m_serverProcess->waitForFinished(30000);
        if (m_serverProcess->state() == QProcess::Running &&
            askQuestion("При остановке сервера произошла ошибка! Хотите выйти?",
                        QMessageBox::Ok | QMessageBox::Cancel) != QMessageBox::Ok) {
            event->ignore();
            return;
        }
    }
    if (m_dirty) {
        const int answer = askQuestion("Хотите сохранить изменения настроек?",
                                       QMessageBox::Ok | QMessageBox::No | QMessageBox::Cancel);
        if (answer == QMessageBox::Ok) {
            on_save_action_triggered();
        } else if (answer == QMessageBox::Cancel) {
            event->ignore();
            return;
        }
    }
    event->accept();
}

void MainWindow::on_close_action_triggered()
{
    // With the server running the question is asked here and again in
    // closeEvent; the double question is the program's known behaviour.
    if (m_serverProcess->state() == QProcess::Running &&
        askQuestion("Сервер запущен, хотите остановить сервер и выйти?",
                    QMessageBox::Ok | QMessageBox::Cancel) != QMessageBox::Ok)
        return;
    close();
}

void MainWindow::on_about_action_triggered()
{
    AboutDialog dialog(this);
    dialog.exec();
}

void MainWindow::on_action_help_triggered()
{
    std::thread t(&MainWindow::openHelpUnix, this);
    t.detach();
}

QString MainWindow::besideProgram(const QString& name)
{
    QString path = QCoreApplication::applicationDirPath() + "/" + name;
    return "'" + path.replace("'", "'\\''") + "'";
}

void MainWindow::openHelpUnix()
{
    const int result = std::system(("kchmviewer " + besideProgram("velmora_help.chm")).toUtf8().constData());
    const int code = result / 256;
    if (code == 0)
        return;
    const QString text = QString("Не удалось открыть справку!\nКод ошибки - %1").arg(code);
    GuiThread::run([this, text] { QMessageBox::warning(this, "Ошибка", text); });
    VLOG_WARNING().noquote() << text;
}

void MainWindow::slotCreateCertificates(QMap<QString, QString> mapSettingsCert)
{
    m_certSettings = mapSettingsCert;
}
