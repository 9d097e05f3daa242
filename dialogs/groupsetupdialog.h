#pragma once

#include <QDialog>
#include <QList>
#include <QString>

class CGroupInfo;
class Ui_GroupSetupDialog;

// Modal editor of one group; accepting writes the node and hands the values on.
class GroupSetupDialog : public QDialog
{
    Q_OBJECT
public:
    GroupSetupDialog(CGroupInfo* group, QWidget* parent = nullptr);
    ~GroupSetupDialog() override;

    void Init();

signals:
    void signalInfoGroup(QList<QString> info, bool flagSaveEnable);

private slots:
    void on_mu_UpdateRateBox_currentIndexChanged(int index);
    void on_GroupSetupDialog_accepted();

private:
    Ui_GroupSetupDialog* ui;
    CGroupInfo* m_group;
    QString m_oldName;
};
