#pragma once

#include <QDialog>
#include <QList>
#include <QString>

class CChannelInfo;
class Ui_ChannelSetupDialog;

// Modal editor of one channel. It works on the node itself: a change of the
// channel type replaces the port at once, and accepting writes every field and
// hands the same values on as a list for a running server.
class ChannelSetupDialog : public QDialog
{
    Q_OBJECT
public:
    ChannelSetupDialog(CChannelInfo* channel, QWidget* parent = nullptr);
    ~ChannelSetupDialog() override;

    void Init();

signals:
    void signalInfoChannel(QList<QString> info, bool flagSaveEnable);
    void signalIpAddr(QString addr);

private slots:
    void on_typeBox_currentIndexChanged(int index);
    void on_ChannelSetupDialog_accepted();

private:
    Ui_ChannelSetupDialog* ui;
    CChannelInfo* m_channel;
    QString m_oldName;
};
