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
    void tables();
    void registerCounts();
    void variantCodes();
    void rangeReads();
    void utf8Conversion();
    void conversionFailureIsReported();
};

void TestVocabulary::tables()
{
    QCOMPARE(g_wszModbusValType.size(), size_t(24));
    QCOMPARE(FindTableText(g_wszModbusValType, L"Бит15"), 23);
    QCOMPARE(FindTableText(g_wszModbusValType, L"Цел32(знак)"), 5);
    QCOMPARE(FindTableText(g_wszYesNo, L"Да"), 1);
    // Comparison is exact: case, blanks and a trailing point all count.
    QCOMPARE(FindTableText(g_wszYesNo, L"да"), -1);
    QCOMPARE(FindTableText(g_wszYesNo, L"Да "), -1);
    QCOMPARE(FindTableText(CPortIO_Data_COM::m_wszRtsControl, L"Togge"), 3);
    QCOMPARE(FindTableText(CPortIO_Data_COM::m_wszRtsControl, L"Toggle"), -1);
    QCOMPARE(CPortIO_Data_COM::m_wszDtrControl.size(), size_t(3));
    QCOMPARE(CPortIO_Data_COM::m_wszBaudRate.size(), size_t(14));
    QCOMPARE(FindTableText(CPortIO_Data_COM::m_wszBaudRate, L"256000"), 13);

    const std::vector<size_t> rowSizes{1, 2, 4, 1, 4};
    QCOMPARE(g_wszByteOrder.size(), rowSizes.size());
    for (size_t i = 0; i < rowSizes.size(); ++i)
        QCOMPARE(g_wszByteOrder[i].size(), rowSizes[i]);
    QCOMPARE(FindTableText(g_wszByteOrder[4], L"HG FE DC BA"), 3);
    QCOMPARE(FindTableText(g_wszByteOrder[2], L"CD AB"), 1);
    QCOMPARE(TableTextUTF8(g_wszYesNo, 2), std::string());
    QCOMPARE(TableTextUTF8(g_wszYesNo, -1), std::string());
}

void TestVocabulary::registerCounts()
{
    // The byte order map gives 0 above 5; the tag's own count gives 1 for part of a register.
    const int byteOrderRow[] = {2, 4, 1, 2, 1, 2};
    for (int t = 0; t <= 25; ++t) {
        const auto type = static_cast<en_ModbusValType>(t);
        const int expectedMap = t <= 5 ? byteOrderRow[t] : 0;
        const int expectedTag = t <= 5 ? byteOrderRow[t] : (t <= 24 ? 1 : 0);
        QCOMPARE(ModbusTypes::GetRegsCount(type), expectedMap);
        QCOMPARE(ModbusTypes::GetRegsCount(static_cast<unsigned char>(t)), expectedMap);
        QCOMPARE(CDATagInfo::GetRegsCount(type), expectedTag);
    }
}

void TestVocabulary::variantCodes()
{
    QCOMPARE(ModbusTypes::Modbus2VT.size(), size_t(25));
    QCOMPARE(ModbusTypes::GetVT(MVT_Real32), VT_R4);
    QCOMPARE(ModbusTypes::GetVT(MVT_HighByte), VT_UI1);
    QCOMPARE(ModbusTypes::GetVT(MVT_Bool), VT_BOOL);
    QCOMPARE(ModbusTypes::GetVT(static_cast<en_ModbusValType>(25)), VT_R4);
    QCOMPARE(ModbusTypes::GetValueVT(MRT_DiscreteInput, MVT_UInt32), VT_BOOL);
    QCOMPARE(ModbusTypes::GetValueVT(MRT_Coil, MVT_Real64), VT_BOOL);
    QCOMPARE(ModbusTypes::GetValueVT(MRT_HoldingRegister, MVT_UInt32), VT_UI4);
    QCOMPARE(ModbusTypes::GetValueVT(MRT_InputRegister, MVT_Int32), VT_I4);
    QCOMPARE(ModbusTypes::GetValueVT(static_cast<en_ModbusRegType>(7), MVT_Int32), VT_BOOL);
    QVERIFY((IntTypes == std::vector<unsigned short>{16, 17, 2, 18, 3, 19, 11, 22, 23}));
    QVERIFY((FltTypes == std::vector<unsigned short>{4, 5}));
}

void TestVocabulary::rangeReads()
{
    // An empty or non-numeric text reads as 0.
    QVERIFY(Validate_Range_t<int>(L"", 0, 255));
    QVERIFY(!Validate_Range_t<int>(L"", 1, 125));
    QVERIFY(!Validate_Range_t<int>(L"abc", 1, 125));
    // Leading blanks are skipped, trailing rubbish ignored.
    QVERIFY(Validate_Range_t<int>(L"12abc", 0, 20));
    QVERIFY(Validate_Range_t<int>(L"  20", 0, 20));
    QVERIFY(!Validate_Range_t<int>(L"21x", 0, 20));
    QVERIFY(Validate_Range_t<int>(L"-5", -5, 0));
    // Overflow gives the limit of the type: fails unless the range reaches it.
    QVERIFY(!Validate_Range_t<int>(L"99999999999", 0, 1000));
    QVERIFY(Validate_Range_t<int>(L"99999999999", 0, INT_MAX));
    QVERIFY(!Validate_Range_t<int>(L"-99999999999", -1000, 0));
    QVERIFY(Validate_Range_t<long>(L"4294967295", 0, 4294967295L));
    QVERIFY(Validate_Range_t<double>(L"0.5", 0.0, 1.0));
    QVERIFY(!Validate_Range_t<double>(L"1.0001", 0.0, 1.0));
}

void TestVocabulary::utf8Conversion()
{
    using DataConversion::wstringtoUTF8;
    QCOMPARE(wstringtoUTF8(L""), std::string());
    QCOMPARE(wstringtoUTF8(L"Tag_1"), std::string("Tag_1"));
    QCOMPARE(wstringtoUTF8(L"мин."), std::string("мин."));
    // Four UTF-8 bytes for a code point outside the basic plane still fit the buffer.
    QCOMPARE(wstringtoUTF8(L"\U0001F600\U0001F600"), std::string("\U0001F600\U0001F600"));
    QCOMPARE(wstringtoUTF8(std::wstring(64, L'Ж')).size(), size_t(128));
    QCOMPARE(DataConversion::UTF8toCP1251("Привет"), std::string());
    QCOMPARE(DataConversion::UTF8toCP1251(nullptr), std::string());
}

void TestVocabulary::conversionFailureIsReported()
{
    QTemporaryFile capture;
    QVERIFY(capture.open());
    fflush(stderr);
    std::cerr.flush();
    const int saved = dup(STDERR_FILENO);
    QVERIFY(dup2(capture.handle(), STDERR_FILENO) >= 0);
    // A lone surrogate is no code point.
    const std::string result = DataConversion::wstringtoUTF8(std::wstring(1, static_cast<wchar_t>(0xD800)));
    std::cerr.flush();
    dup2(saved, STDERR_FILENO);
    close(saved);
    QCOMPARE(result, std::string());
    capture.seek(0);
    const QByteArray text = capture.readAll();
    QVERIFY2(text.startsWith("Unable to convert from UTF32: "), text.constData());
    QCOMPARE(text.count('\n'), 1);
}

QTEST_GUILESS_MAIN(TestVocabulary)
#include "tst_vocabulary.moc"
