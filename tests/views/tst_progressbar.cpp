#include "app/progressbar.h"
#include "tests/common/modalwatcher.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QTimer>
#include <QtTest>

#include <thread>

// Stands in for the owner of a worker: it carries the two signals the busy
// dialog listens to, emitted from a plain std::thread as the program does.
class Owner : public QObject
{
    Q_OBJECT
signals:
    void signalCloseProgressBar(int err);
    void signalSetLabelProgressBar(QString newLabel);
};

static void connectOwner(Owner& owner, ProgressBar& dlg)
{
    QObject::connect(&owner, &Owner::signalCloseProgressBar, &dlg, &ProgressBar::slotCloseProgressBar);
    QObject::connect(&owner, &Owner::signalSetLabelProgressBar, &dlg, &ProgressBar::slotSetLabelProgressBar);
}

class TestProgressBar : public QObject
{
    Q_OBJECT
private slots:
    void form();
    void workerDoneBeforeExec();
    void closeRefusedDuringWait();
    void silentCodes_data();
    void silentCodes();
    void failureBoxes();
    void boxBeforeClose();
};

void TestProgressBar::form()
{
    ProgressBar dlg;
    QCOMPARE(dlg.objectName(), QStringLiteral("ProgressBar"));
    QCOMPARE(dlg.windowTitle(), QStringLiteral("Выполнение операции"));
    auto* bar = dlg.findChild<QProgressBar*>("progressBar");
    auto* label = dlg.findChild<QLabel*>("label");
    QVERIFY(bar && label);
    // A range of 0..0 is what makes the bar run without a percentage.
    QCOMPARE(bar->minimum(), 0);
    QCOMPARE(bar->maximum(), 0);
    QVERIFY(label->text().isEmpty());
    QCOMPARE(dlg.resultCode(), 0);
}

void TestProgressBar::workerDoneBeforeExec()
{
    ModalWatcher watcher;
    ProgressBar dlg;
    Owner owner;
    connectOwner(owner, dlg);
    std::thread worker([&owner] {
        emit owner.signalSetLabelProgressBar(QStringLiteral("Идёт работа"));
        emit owner.signalCloseProgressBar(0);
    });
    worker.join();
    // Both signals wait in the queue; the dialog's own loop must deliver them.
    QVERIFY(dlg.findChild<QLabel*>("label")->text().isEmpty());
    dlg.exec();
    QVERIFY(!dlg.isVisible());
    QCOMPARE(dlg.resultCode(), 0);
    QCOMPARE(dlg.findChild<QLabel*>("label")->text(), QStringLiteral("Идёт работа"));
    QVERIFY(watcher.seen().isEmpty());
}

void TestProgressBar::closeRefusedDuringWait()
{
    ProgressBar dlg;
    Owner owner;
    connectOwner(owner, dlg);
    bool closedEarly = true;
    bool visibleAfterClose = false;
    QTimer::singleShot(0, &dlg, [&] {
        closedEarly = dlg.close();
        visibleAfterClose = dlg.isVisible();
        std::thread([&owner] { emit owner.signalCloseProgressBar(0); }).detach();
    });
    dlg.exec();
    QVERIFY(!closedEarly);
    QVERIFY(visibleAfterClose);
    QVERIFY(!dlg.isVisible());
}

void TestProgressBar::silentCodes_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("success") << 0;
    QTest::newRow("first unknown") << 14;
    QTest::newRow("large") << 1000;
    QTest::newRow("negative") << -1;
}

void TestProgressBar::silentCodes()
{
    QFETCH(int, code);
    ModalWatcher watcher;
    ProgressBar dlg;
    QTimer::singleShot(0, &dlg, [&dlg, code] { dlg.slotCloseProgressBar(code); });
    dlg.exec();
    QCOMPARE(dlg.resultCode(), code);
    QVERIFY(watcher.seen().isEmpty());
}

void TestProgressBar::failureBoxes()
{
    ModalWatcher watcher;
    for (int code = 1; code <= 13; ++code) {
        watcher.answer(QMessageBox::Ok);
        ProgressBar dlg;
        QTimer::singleShot(0, &dlg, [&dlg, code] { dlg.slotCloseProgressBar(code); });
        dlg.exec();
        QCOMPARE(dlg.resultCode(), code);
    }
    QCOMPARE(watcher.seen().size(), 13);
    QCOMPARE(watcher.unexpectedCount(), 0);

    QStringList texts;
    for (const ModalWatcher::Seen& s : watcher.seen()) {
        QCOMPARE(s.title, QStringLiteral("Внимание"));
        texts << s.text;
    }
    // Both save failures read the same; every other code has its own words.
    QCOMPARE(texts[11], QStringLiteral("Не удалось сохранить файл конфигурации."));
    QCOMPARE(texts[12], texts[11]);
    QCOMPARE(QSet<QString>(texts.begin(), texts.end()).size(), 12);
    QCOMPARE(texts[0],
             QStringLiteral("Не удалось автоматически подключиться к серверу. Проверьте, запущен ли "
                            "сервер, доступны ли IP адрес и порт, и попробуйте вручную."));
    QCOMPARE(texts[6], QStringLiteral("Ошибка заполнения дерева, не верный формат файла."));
    QCOMPARE(texts[7],
             QStringLiteral("Ошибка отключение подписки выбранных тегов, подробности смотрите с логе."));
}

void TestProgressBar::boxBeforeClose()
{
    ModalWatcher watcher;
    ProgressBar dlg;
    Owner owner;
    connectOwner(owner, dlg);
    bool barShownBehindBox = false;
    watcher.answer([&](QWidget* box) {
        barShownBehindBox = dlg.isVisible();
        ModalWatcher::pressButton(box, QMessageBox::Ok);
    });
    std::thread([&owner] { emit owner.signalCloseProgressBar(10); }).detach();
    dlg.exec();
    QVERIFY(barShownBehindBox);
    QCOMPARE(watcher.seen().size(), 1);
    QCOMPARE(watcher.seen().first().text,
             QStringLiteral("Ошибка создания подписки выбранных тегов, подробности смотрите с логе."));
    QCOMPARE(dlg.resultCode(), 10);
}

QTEST_MAIN(TestProgressBar)
#include "tst_progressbar.moc"
