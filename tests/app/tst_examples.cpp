#include "config/csvimporter.h"
#include "model/treeitemroot.h"

#include <QtTest>

// The shipped examples must open cleanly in both forms and describe the same tree.
class ExamplesTest : public QObject
{
    Q_OBJECT

private slots:
    void examplesLoadInBothForms_data()
    {
        QTest::addColumn<uint>("channels");
        QTest::addColumn<uint>("tags");
        QTest::newRow("small") << 2u << 3u;
        QTest::newRow("plant") << 4u << 300u;
    }

    void examplesLoadInBothForms()
    {
        QFETCH(uint, channels);
        QFETCH(uint, tags);
        const std::string base = std::string(VELMORA_EXAMPLES) + "/" + QTest::currentDataTag();

        CTreeItemRoot scrambled;
        QVERIFY(CCsvLoader(&scrambled).Load(base + ".cfg", false));
        CTreeItemRoot plain;
        QVERIFY(CCsvLoader(&plain).Load(base + ".csv", true));

        QCOMPARE(scrambled.size(), channels);
        QVERIFY(scrambled.GetItemsCount(itTag) >= tags);
        QCOMPARE(plain.GetItemsCount(itTag), scrambled.GetItemsCount(itTag));
        QCOMPARE(plain.GetItemsCount(itGroup), scrambled.GetItemsCount(itGroup));
    }
};

QTEST_GUILESS_MAIN(ExamplesTest)
#include "tst_examples.moc"
