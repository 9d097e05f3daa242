#pragma once

#include <QDialog>
#include <QString>

namespace Ui {
class ProgressBar;
}

// Modal busy dialog shown while a worker owns the tree. Only the worker's
// close signal ends the wait; the window's close button is refused.
class ProgressBar : public QDialog
{
    Q_OBJECT
public:
    explicit ProgressBar(QWidget* parent = nullptr);
    ~ProgressBar() override;

    // The last code given to slotCloseProgressBar; 0 means success.
    int resultCode() const { return m_result; }

public slots:
    void slotCloseProgressBar(int err);
    void slotSetLabelProgressBar(QString newLabel);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    Ui::ProgressBar* ui;
    int m_result = 0;
    bool m_allowClose = false;
};
