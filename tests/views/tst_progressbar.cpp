#include "app/progressbar.h"
#include "tests/common/modalwatcher.h"

#include <QLabel>
#include <QtTest>

#include <thread>

// The owner of a worker: the dialog listens to its two signals, which a plain
// std::thread emits, so they reach the dialog queued.
class Owner : public QObject
{
    Q_OBJECT
signals:
    void signalCloseProgressBar(int err);
    void signalSetLabelProgressBar(QString newLabel);
};

class TestProgressBar : public QObject
{
    Q_OBJECT
private slots:
    void workerDoneBeforeExec()
    {
        ModalWatcher watcher;
        ProgressBar dlg;
        Owner owner;
        connect(&owner, &Owner::signalCloseProgressBar, &dlg, &ProgressBar::slotCloseProgressBar);
        connect(&owner, &Owner::signalSetLabelProgressBar, &dlg, &ProgressBar::slotSetLabelProgressBar);
        std::thread([&owner] {
            emit owner.signalSetLabelProgressBar(QStringLiteral("Идёт работа"));
            emit owner.signalCloseProgressBar(0);
        }).join();
        dlg.exec(); // returns only if the queued close reaches the dialog's own loop
        QCOMPARE(dlg.findChild<QLabel*>("label")->text(), QStringLiteral("Идёт работа"));
        QVERIFY(watcher.seen().isEmpty());
    }

    void resultCodes()
    {
        ModalWatcher watcher;
        for (int code : {0, 14, -1}) {
            // The user can't close the dialog while the worker runs.
            ProgressBar dlg;
            bool closed = true;
            QTimer::singleShot(0, &dlg, [&] {
                closed = dlg.close() || !dlg.isVisible();
                dlg.slotCloseProgressBar(code);
            });
            dlg.exec();
            QVERIFY(!closed && dlg.resultCode() == code);
        }
        QVERIFY(watcher.seen().isEmpty());

        QStringList texts;
        for (int code = 1; code <= 13; ++code) {
            ProgressBar dlg;
            bool openBehindBox = false;
            watcher.answer([&](QWidget* box) {
                openBehindBox = dlg.isVisible();
                ModalWatcher::pressButton(box, QMessageBox::Ok);
            });
            QTimer::singleShot(0, &dlg, [&dlg, code] { dlg.slotCloseProgressBar(code); });
            dlg.exec();
            QVERIFY2(openBehindBox && dlg.resultCode() == code, qPrintable(QString::number(code)));
            QCOMPARE(watcher.seen().last().title, QStringLiteral("Внимание"));
            texts << watcher.seen().last().text;
        }
        QCOMPARE(watcher.unexpectedCount(), 0);
        // Both save failures read the same; every other code has its own words.
        QCOMPARE(texts[11], texts[12]);
        QCOMPARE(QSet<QString>(texts.begin(), texts.end()).size(), 12);
        QCOMPARE(texts[7],
                 QStringLiteral("Ошибка отключение подписки выбранных тегов, подробности смотрите с логе."));
    }
};

QTEST_MAIN(TestProgressBar)
#include "tst_progressbar.moc"
