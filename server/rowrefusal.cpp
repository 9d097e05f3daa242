#include "server/rowrefusal.h"

#include "model/groupdata.h"
#include "model/groupinfo.h"

#include <QString>

#include <cstdlib>

namespace {

struct Caption
{
    const char* name;
    const char* allowed;
};

const char kName[] = "от 1 до 64 символов, без точки";
const char kYesNo[] = "«Да» или «Нет»";

// By file field number, from 1.
const Caption kChannel[] = {{"Имя", kName},
                            {"Тип канала", "«COM-порт» или «TCP-соединение»"},
                            {"Тип протокола", "«MODBUS RTU», «MODBUS ASCII» или «MODBUS TCP»"},
                            {"Таймаут ожидания ответа", "от 20 до 60000 мс"},
                            {"Кол-во попыток", "от 1 до 20"},
                            {"Пауза перед запросом", "от 0 до 10000 мс"}};
const Caption kSerial[] = {{"COM-порт", "от 0 до 1000"},
                           {"Скорость обмена",
                            "300, 600, 1200, 2400, 4800, 9600, 14400, 19200, 38400, 56000, "
                            "57600, 115200, 128000 или 256000"},
                           {"Количество бит данных", "7 или 8"},
                           {"Количество стоп-бит данных", "1 или 2"},
                           {"Контроль чётности", "«Нет», «Нечет», «Чет», «Маркер» или «Пробел»"},
                           {"Наличие эха", kYesNo},
                           {"Управление RTS", "«Нет», «Включено», «Handshake» или «Togge»"},
                           {"Управление DTR", "«Нет», «Включено» или «Handshake»"}};
const Caption kTcp[] = {{"IP-адрес", "четыре числа от 0 до 255 через точку"},
                        {"TCP-порт", "от 1 до 65535"},
                        {"Таймаут установки соединения", "от 20 до 120000 мс"}};
const Caption kDevice[] = {{"Имя", kName},
                           {"Адрес Modbus", "от 0 до 255"},
                           {"Эмуляция", kYesNo},
                           {"Макс. кол-во регистров в запросе", "от 1 до 125"},
                           {"Макс. кол-во состояний в запросе", "от 1 до 2000"},
                           {"Макс. допустимая фрагментация", "от 0 до 123"},
                           {"Обмен с устройством", kYesNo}};
const Caption kGroup[] = {
    {"Имя", kName},
    {"Период опроса", "в «мс» до 86400000, в «с» до 86400, в «мин.» до 1440, в «ч» до 24"},
    {"Единица периода опроса", "«мс», «с», «мин.» или «ч»"}};
const Caption kTag[] = {
    {"Имя", kName},
    {"Тип регистра", "«Входное состояние», «Выходное состояние», «Входной регистр» или «Выходной регистр»"},
    {"Адрес", "от 1 до 65535"},
    {"Размер сегмента", "для состояний от 0 до 2000, для регистров от 0 до 123"},
    {"Смещение в сегменте", "от 0 до размера сегмента"},
    {"Чтение", kYesNo},
    {"Запись", kYesNo},
    {"Режим записи", "«Одиночная» или «Групповая»"},
    {"Тип значения", "«Вещ32», «Вещ64», «Цел16», «Цел32», «Цел16(знак)», «Цел32(знак)», «Младший байт», "
                     "«Старший байт» или «Бит0» … «Бит15»"},
    {"Порядок байт", "текст из списка порядков байт типа значения"},
    {"Тип преобразования", "«Нет», «Линейная шкала» или «Множитель»"},
    {"Минимум из устройства", "целое в диапазоне типа значения"},
    {"Максимум из устройства", "целое в диапазоне типа значения"},
    {"Минимум конечного значения", "число"},
    {"Максимум конечного значения", "число"},
    {"Тип эмуляции", "«Константа», «Случайное число» или «Синусоида»"},
    {"Константа", "число в диапазоне типа значения"}};
const Caption kFactor = {"Множитель", "от -100000 до 100000, кроме 0"};
const Caption kPeriod = {"Период", "от 1 до 60 с"};

std::string Utf8(const std::wstring& text)
{
    return QString::fromStdWString(text).toStdString();
}

// A cell as a person can read it, a long one cut.
std::string Shown(const std::wstring& cell)
{
    const std::size_t kLongest = 40;
    return cell.size() > kLongest ? Utf8(cell.substr(0, kLongest)) + "…" : Utf8(cell);
}

const Caption* CaptionOf(int section, const CCsvLoader::Row& cells, int field)
{
    // `table` holds the fields from `first` on.
    const auto pick = [field](const Caption* table, int first, int count) {
        return field >= first && field < first + count ? &table[field - first] : nullptr;
    };
    switch (section) {
    case 1:
        if (field <= 6)
            return pick(kChannel, 1, 6);
        return cells.size() > 2 && cells[2] == L"TCP-соединение" ? pick(kTcp, 7, 3) : pick(kSerial, 7, 8);
    case 2:
        return pick(kGroup, 1, 3);
    case 3:
        return pick(kDevice, 1, 7);
    case 4:
        if (field == 12 && cells.size() > 11 && cells[11] == L"Множитель")
            return &kFactor;
        if (field == 17 && cells.size() > 16 && cells[16] == L"Синусоида")
            return &kPeriod;
        return pick(kTag, 1, 17);
    default:
        return nullptr;
    }
}

// The reader names field 1 for every field of a group row; the validators
// find the one at fault, in the reader's order.
int GroupField(const CCsvLoader::Row& cells)
{
    CGroupInfo scratch;
    CGroupData data(&scratch);
    if (cells.size() < 4 || !data.Set_Name(cells[1]))
        return 1;
    return data.Set_MU_UpdateRate(cells[3]) ? 2 : 3;
}

} // namespace

std::string CRowRefusal::Field(int section, const CCsvLoader::Row& cells, int field, const std::string& why)
{
    const Caption* caption = CaptionOf(section, cells, field);
    const std::string value = std::size_t(field) < cells.size() ? Shown(cells[field]) : std::string();
    std::string text = "поле " + std::to_string(field);
    if (caption)
        text += std::string(" «") + caption->name + "»";
    text += " = «" + value + "»";
    if (!why.empty())
        return text + ": " + why;
    return caption ? text + ": " + caption->allowed : text;
}

std::string CRowRefusal::Describe(int section, const CCsvLoader::Row& cells, const std::string& readerError)
{
    const std::string marker = "ошибка поля <";
    const std::size_t at = readerError.find(marker);
    if (at == std::string::npos)
        return std::string();
    const int field = std::atoi(readerError.c_str() + at + marker.size());
    if (section == 2)
        return Field(2, cells, GroupField(cells));
    // The reader's own words, where it has some, tell more than the table:
    // a second channel on one COM port, reported behind the last field.
    const std::size_t extra = readerError.find("> - ", at);
    if (extra != std::string::npos) {
        std::string why = readerError.substr(extra + 4);
        if (!why.empty() && why.back() == '.')
            why.pop_back();
        return Field(section, cells, section == 1 ? 7 : field, why);
    }
    return Field(section, cells, field);
}
