#include "model/dataconversion.h"
#include "model/dataginfo.h"
#include "model/modbus_types.h"
#include "model/portio_data_com.h"
#include "model/rangevalidate.h"

#include <QtTest>

#include <climits>
#include <cstdio>
#include <iostream>
#include <unistd.h>

using RangeValidate::Validate_Range_t;

class TestVocabulary : public QObject
{
    Q_OBJECT

private slots:
    void tablesAndTypes();
    void rangeReads();
    void utf8Conversion();
};

void TestVocabulary::tablesAndTypes()
{
    // Comparison is exact: case, blanks and a trailing letter all count.
    for (const wchar_t* text : {L"да", L"Да "})
        QCOMPARE(FindTableText(g_wszYesNo, text), -1);
    QCOMPARE(FindTableText(CPortIO_Data_COM::m_wszRtsControl, L"Toggle"), -1);
    QVERIFY(TableTextUTF8(g_wszYesNo, 2).empty() && TableTextUTF8(g_wszYesNo, -1).empty());

    // The byte order map knows only the multi-register types; the tag's own count gives 1 for
    // part of a register and 0 past the table.
    QVERIFY(ModbusTypes::GetRegsCount(MVT_Real64) == 4 &&
            ModbusTypes::GetRegsCount(static_cast<unsigned char>(6)) == 0);
    QCOMPARE(CDATagInfo::GetRegsCount(MVT_Bit15), 1);
    QCOMPARE(CDATagInfo::GetRegsCount(static_cast<en_ModbusValType>(25)), 0);

    // Discrete registers and unknown kinds hold booleans whatever the value type; unknown types give VT_R4.
    QCOMPARE(ModbusTypes::GetVT(static_cast<en_ModbusValType>(25)), VT_R4);
    QCOMPARE(ModbusTypes::GetValueVT(MRT_Coil, MVT_Real64), VT_BOOL);
    QCOMPARE(ModbusTypes::GetValueVT(static_cast<en_ModbusRegType>(7), MVT_Int32), VT_BOOL);
}

void TestVocabulary::rangeReads()
{
    // Empty or non-numeric reads as 0; leading blanks are skipped, trailing rubbish ignored.
    QVERIFY(Validate_Range_t<int>(L"", 0, 255) && !Validate_Range_t<int>(L"abc", 1, 125));
    QVERIFY(Validate_Range_t<int>(L"  12abc", 0, 20) && !Validate_Range_t<int>(L"21x", 0, 20));
    // Overflow gives the limit of the type: fails unless the range reaches it.
    QVERIFY(!Validate_Range_t<int>(L"99999999999", 0, 1000) &&
            Validate_Range_t<int>(L"99999999999", 0, INT_MAX));
    QVERIFY(!Validate_Range_t<double>(L"1.0001", 0.0, 1.0));
}

void TestVocabulary::utf8Conversion()
{
    using DataConversion::wstringtoUTF8;
    // Four UTF-8 bytes for a code point outside the basic plane still fit the buffer.
    QCOMPARE(wstringtoUTF8(L"\U0001F600\U0001F600"), std::string("\U0001F600\U0001F600"));
    QCOMPARE(wstringtoUTF8(std::wstring(64, L'Ж')).size(), size_t(128));
    QVERIFY(DataConversion::UTF8toCP1251("Привет").empty() && DataConversion::UTF8toCP1251(nullptr).empty());

    // A lone surrogate is no code point: the failure is reported on stderr, once.
    QTemporaryFile capture;
    QVERIFY(capture.open());
    fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    QVERIFY(dup2(capture.handle(), STDERR_FILENO) >= 0);
    const std::string result = wstringtoUTF8(std::wstring(1, static_cast<wchar_t>(0xD800)));
    std::cerr.flush();
    dup2(saved, STDERR_FILENO);
    close(saved);
    QCOMPARE(result, std::string());
    capture.seek(0);
    const QByteArray text = capture.readAll();
    QVERIFY2(text.startsWith("Unable to convert from UTF32: ") && text.count('\n') == 1, text.constData());
}

QTEST_GUILESS_MAIN(TestVocabulary)
#include "tst_vocabulary.moc"
