#pragma once

#include <QDialog>
#include <QString>

namespace Ui {
class DialogAddUsers;
}

// Keeps the list of users that the gateway accepts. The list is a block at the
// end of the scrambled configuration file; every add and delete rewrites the
// file at once, so there is nothing to undo on Cancel.
class DialogAddUsers : public QDialog
{
    Q_OBJECT
public:
    DialogAddUsers(QString path, QWidget* parent = nullptr);
    ~DialogAddUsers() override;

    void readFileUsers();
    void fillTableUsers(QString list);
    void saveUsers(QString login, QString password);
    void deleteUser(QString value);

public slots:
    void accept() override;

private slots:
    void on_pushButton_add_user_clicked();
    void on_pushButton_delete_user_clicked();
    void on_DialogAddUsers_accepted();

private:
    // The clear text of the file; where it holds the users block, m_users
    // takes the list behind the block's header. False if it can't be read.
    bool readUsers(QString& text, bool& hasBlock);
    void writeClearText(const QString& text);

    Ui::DialogAddUsers* ui;
    QString m_login;
    QString m_password;
    QString m_path;
    QString m_users;
};
