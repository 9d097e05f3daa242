#include "app/serveroutputdialog.h"

#include "ui_serveroutputdialog.h"

ServerOutputDialog::ServerOutputDialog(QWidget* parent) : QDialog(parent), ui(new Ui::ServerOutputDialog)
{
    ui->setupUi(this);
}

ServerOutputDialog::~ServerOutputDialog()
{
    delete ui;
}

void ServerOutputDialog::Init(const QString& text)
{
    ui->textBrowser->setPlainText(text);
}
