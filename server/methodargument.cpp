#include "server/methodargument.h"

#include <algorithm>
#include <cstring>

namespace {

enum class Form
{
    Decimal, // plain decimal digits
    Char,    // one character whose code is the number
    Order,   // byte order: a character code from the edit dialog or decimal digits from the add worker
    Flag     // "1" or "0"
};

struct FieldRule
{
    int field;
    Form form;
    std::int64_t min;
    std::int64_t max;
    const char* name; // as the property views show it
};

const FieldRule kSerialChannel[] = {{3, Form::Decimal, 0, 1, "Тип канала"},
                                    {4, Form::Decimal, 20, 60000, "Таймаут ожидания ответа"},
                                    {5, Form::Decimal, 1, 20, "Кол-во попыток"},
                                    {6, Form::Decimal, 0, 10000, "Пауза перед запросом"},
                                    {7, Form::Decimal, 0, 2, "Тип протокола"},
                                    {8, Form::Decimal, 0, 1000, "COM-порт"},
                                    {9, Form::Decimal, 300, 256000, "Скорость обмена"},
                                    {10, Form::Decimal, 7, 8, "Количество бит данных"},
                                    {11, Form::Decimal, 1, 2, "Количество стоп-бит данных"},
                                    {12, Form::Decimal, 0, 4, "Контроль чётности"},
                                    {13, Form::Flag, 0, 1, "Наличие эха"},
                                    {14, Form::Decimal, 0, 3, "Управление RTS"},
                                    {15, Form::Decimal, 0, 2, "Управление DTR"}};

const FieldRule kTcpChannel[] = {{3, Form::Decimal, 0, 1, "Тип канала"},
                                 {4, Form::Decimal, 20, 60000, "Таймаут ожидания ответа"},
                                 {5, Form::Decimal, 1, 20, "Кол-во попыток"},
                                 {6, Form::Decimal, 0, 10000, "Пауза перед запросом"},
                                 {7, Form::Decimal, 0, 2, "Тип протокола"},
                                 {8, Form::Decimal, 0, 4294967295LL, "IP-адрес"},
                                 {9, Form::Decimal, 1, 65535, "TCP-порт"},
                                 {10, Form::Decimal, 20, 120000, "Таймаут установки соединения"}};

const FieldRule kDevice[] = {{3, Form::Char, 0, 255, "Адрес Modbus"},
                             {4, Form::Flag, 0, 1, "Обмен с устройством"},
                             {5, Form::Flag, 0, 1, "Эмуляция"},
                             {6, Form::Char, 1, 125, "Макс. кол-во регистров в запросе"},
                             {7, Form::Char, 1, 2000, "Макс. кол-во состояний в запросе"},
                             {8, Form::Char, 0, 123, "Макс. допустимая фрагментация"}};

const FieldRule kGroup[] = {{3, Form::Decimal, 0, 86400000, "Период опроса"},
                            {4, Form::Decimal, 0, 3, "Единица периода опроса"}};

// Address 0 passes here: the tag it would make is refused with its name.
// Byte order 255 is "none", which the tag dialog sends for types without one.
const FieldRule kTag[] = {{3, Form::Decimal, 0, 3, "Тип регистра"},
                          {4, Form::Decimal, 0, 65535, "Адрес"},
                          {5, Form::Decimal, 0, 23, "Тип значения"},
                          {6, Form::Order, 0, 255, "Порядок байт"},
                          {7, Form::Flag, 0, 1, "Чтение"},
                          {8, Form::Flag, 0, 1, "Запись"},
                          {9, Form::Flag, 0, 1, "Режим записи"},
                          {10, Form::Decimal, 0, 2000, "Размер сегмента"},
                          {11, Form::Decimal, 0, 2000, "Смещение в сегменте"},
                          {12, Form::Decimal, 0, 2, "Тип преобразования"},
                          {13, Form::Decimal, 0, 2, "Тип преобразования"},
                          {14, Form::Decimal, 0, 2, "Тип эмуляции"},
                          {15, Form::Decimal, 0, 2, "Тип эмуляции"}};

const std::int64_t kBaudRates[] = {300,   600,   1200,  2400,  4800,   9600,   14400,
                                   19200, 38400, 56000, 57600, 115200, 128000, 256000};

// Decodes one UTF-8 sequence at `pos`; returns false on a broken one.
bool DecodeUtf8(const std::string& s, std::size_t& pos, std::uint32_t& cp)
{
    const auto b0 = static_cast<unsigned char>(s[pos]);
    int extra = 0;
    if (b0 < 0x80) {
        cp = b0;
    } else if ((b0 & 0xE0) == 0xC0) {
        cp = b0 & 0x1F;
        extra = 1;
    } else if ((b0 & 0xF0) == 0xE0) {
        cp = b0 & 0x0F;
        extra = 2;
    } else if ((b0 & 0xF8) == 0xF0) {
        cp = b0 & 0x07;
        extra = 3;
    } else {
        return false;
    }
    if (pos + extra >= s.size())
        return false;
    for (int i = 1; i <= extra; ++i) {
        const auto b = static_cast<unsigned char>(s[pos + i]);
        if ((b & 0xC0) != 0x80)
            return false;
        cp = (cp << 6) | (b & 0x3F);
    }
    pos += 1 + extra;
    return true;
}

bool CodePointCount(const std::string& s, std::size_t& count)
{
    count = 0;
    std::size_t pos = 0;
    std::uint32_t cp = 0;
    while (pos < s.size()) {
        if (!DecodeUtf8(s, pos, cp))
            return false;
        ++count;
    }
    return true;
}

bool ParseDecimal(const std::string& s, std::int64_t& v)
{
    if (s.empty() || s.size() > 18)
        return false;
    v = 0;
    for (char c : s) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    return true;
}

bool ParseChar(const std::string& s, std::int64_t& v)
{
    if (s.empty()) {
        v = 0;
        return true;
    }
    std::size_t pos = 0;
    std::uint32_t cp = 0;
    if (!DecodeUtf8(s, pos, cp) || pos != s.size())
        return false;
    v = cp;
    return true;
}

// A field as a person can read it: a character that travels for a number
// shows its code, and a long text is cut.
std::string Shown(const std::string& text, Form form)
{
    std::int64_t code = 0;
    const bool digits = !text.empty() && text[0] >= '0' && text[0] <= '9';
    if ((form == Form::Char || (form == Form::Order && !digits)) && ParseChar(text, code))
        return "символ с кодом " + std::to_string(code);
    const std::size_t kLongest = 40;
    std::string out;
    std::size_t pos = 0, shown = 0;
    std::uint32_t cp = 0;
    while (pos < text.size() && shown < kLongest) {
        const std::size_t at = pos;
        if (!DecodeUtf8(text, pos, cp)) {
            out += '?';
            pos = at + 1;
        } else {
            out += cp < 0x20 || cp == 0x7F ? std::string("?") : text.substr(at, pos - at);
        }
        ++shown;
    }
    return pos < text.size() ? out + "…" : out;
}

bool ValidName(const std::string& name)
{
    std::size_t n = 0;
    return CodePointCount(name, n) && n >= 1 && n <= 64 && name.find('.') == std::string::npos;
}

template <std::size_t N>
bool ParseFields(const std::vector<std::string>& f, const FieldRule (&rules)[N], CMethodArgument& out,
                 std::string& error)
{
    // A ";" sent as a one-character number splits into two empty fields; the
    // surplus over the full layout tells how many of those there can be.
    std::size_t surplus = f.size() > N + 3 ? f.size() - (N + 3) : 0;
    std::size_t cursor = 3;
    out.values.assign(N + 3, std::nullopt);
    for (const FieldRule& rule : rules) {
        if (cursor >= f.size())
            break;
        const std::string& text = f[cursor];
        const bool last = cursor + 1 == f.size();
        std::int64_t v = 0;
        bool ok = false;
        switch (rule.form) {
        case Form::Decimal:
            ok = ParseDecimal(text, v);
            break;
        case Form::Flag:
            ok = text == "0" || text == "1";
            v = text == "1";
            break;
        case Form::Char:
            if (text.empty() && surplus > 0 && cursor + 1 < f.size() && f[cursor + 1].empty()) {
                v = ';';
                ok = true;
                --surplus;
                ++cursor;
            } else {
                // Empty means the NUL that ended the text, so only the last field may be empty.
                ok = (!text.empty() || last) && ParseChar(text, v);
            }
            break;
        case Form::Order:
            if (text.empty())
                ok = last;
            else if (text[0] >= '0' && text[0] <= '9')
                ok = ParseDecimal(text, v);
            else
                ok = ParseChar(text, v);
            break;
        }
        const std::string named =
            "поле " + std::to_string(rule.field) + " «" + rule.name + "» = «" + Shown(text, rule.form) + "»";
        if (!ok) {
            error = named + ": " + (rule.form == Form::Flag ? "ожидается 0 или 1" : "не число");
            return false;
        }
        if (v < rule.min || v > rule.max || (rule.form == Form::Order && v > 3 && v != 255)) {
            error = named + ": вне диапазона " + std::to_string(rule.min) + "–" +
                    std::to_string(rule.form == Form::Order ? 3 : rule.max) +
                    (rule.form == Form::Order ? " (или 255 — нет порядка)" : "");
            return false;
        }
        out.values[rule.field] = v;
        ++cursor;
        if (last && text.empty())
            break;
    }
    if (cursor < f.size()) {
        error = "полей больше, чем у элемента этого вида: " + std::to_string(f.size()) + " вместо " +
                std::to_string(cursor);
        return false;
    }
    return true;
}

bool CheckChannel(const CMethodArgument& a, std::string& error)
{
    if (a.ValueOr(CMethodArgument::ChType, 0) == 0 && a.Has(CMethodArgument::ChBaudRate)) {
        const auto b = a.Value(CMethodArgument::ChBaudRate);
        if (std::find(std::begin(kBaudRates), std::end(kBaudRates), b) == std::end(kBaudRates)) {
            error = "поле 9 «Скорость обмена» = «" + std::to_string(b) + "»: такой скорости нет";
            return false;
        }
    }
    return true;
}

bool CheckGroup(const CMethodArgument& a, std::string& error)
{
    static const std::int64_t kMax[] = {86400000, 86400, 1440, 24};
    if (a.Has(CMethodArgument::GrRate) && a.Has(CMethodArgument::GrUnit) &&
        a.Value(CMethodArgument::GrRate) > kMax[a.Value(CMethodArgument::GrUnit)]) {
        error = "поле 3 «Период опроса» = «" + std::to_string(a.Value(CMethodArgument::GrRate)) +
                "»: больше " + std::to_string(kMax[a.Value(CMethodArgument::GrUnit)]) + " в этих единицах";
        return false;
    }
    return true;
}

bool CheckTag(const CMethodArgument& a, std::string& error)
{
    if (a.Has(CMethodArgument::TagRegType) && a.Has(CMethodArgument::TagRegsInSegment) &&
        a.Value(CMethodArgument::TagRegType) >= 2 && a.Value(CMethodArgument::TagRegsInSegment) > 123) {
        error = "поле 10 «Размер сегмента» = «" + std::to_string(a.Value(CMethodArgument::TagRegsInSegment)) +
                "»: для регистров не больше 123";
        return false;
    }
    if (a.Has(CMethodArgument::TagRegsInSegment) && a.Has(CMethodArgument::TagSegmentPos) &&
        a.Value(CMethodArgument::TagSegmentPos) > a.Value(CMethodArgument::TagRegsInSegment)) {
        error = "поле 11 «Смещение в сегменте» = «" +
                std::to_string(a.Value(CMethodArgument::TagSegmentPos)) + "»: за пределами сегмента";
        return false;
    }
    return true;
}

} // namespace

std::vector<std::string> CMethodArgument::SplitFields(const std::string& text)
{
    const std::string cut = text.substr(0, std::min(text.size(), text.find('\0')));
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (;;) {
        const std::size_t sep = cut.find(';', start);
        if (sep == std::string::npos) {
            fields.push_back(cut.substr(start));
            break;
        }
        fields.push_back(cut.substr(start, sep - start));
        start = sep + 1;
    }
    return fields;
}

bool CMethodArgument::Parse(Method method, const std::string& text, CMethodArgument& out, std::string& error)
{
    out = CMethodArgument();
    if (method == Method::Delete) {
        out.path = text.substr(0, std::min(text.size(), text.find('\0')));
        if (out.path.empty()) {
            error = "пустой путь";
            return false;
        }
        return true;
    }

    const std::vector<std::string> all = SplitFields(text);
    if (ParseItem(all, out, error))
        return true;
    // A cancelled add (or a paste) leaves its path and kind in front of the
    // next command's list: the program sends them along, the last pair counts.
    std::string ignored;
    std::vector<std::string> f = all;
    while (f.size() >= 4 && f[1] == f[3] && f[1].size() == 1 && f[1][0] >= '1' && f[1][0] <= '4') {
        f.erase(f.begin(), f.begin() + 2);
        out = CMethodArgument();
        if (ParseItem(f, out, ignored))
            return true;
    }
    // An edit the gateway refused leaves its whole list in front of the next
    // one of its kind. The last full list counts: it starts at the last place
    // where a list of that kind fits in full to the end.
    for (std::size_t k = all.size() - 1; k >= 2; --k) {
        if (all[k - 1].empty() || all[k] != all[1] || all.size() - (k - 1) < FullSize(all, k - 1))
            continue;
        out = CMethodArgument();
        if (ParseItem(std::vector<std::string>(all.begin() + long(k) - 1, all.end()), out, ignored))
            return true;
    }
    return false;
}

std::size_t CMethodArgument::FullSize(const std::vector<std::string>& f, std::size_t start)
{
    const std::string& kind = f[start + 1];
    if (kind == "1") {
        const bool tcp = start + 3 < f.size() && f[start + 3] == "1";
        return 3 + (tcp ? std::size(kTcpChannel) : std::size(kSerialChannel));
    }
    if (kind == "2")
        return 3 + std::size(kDevice);
    if (kind == "3")
        return 3 + std::size(kGroup);
    return 3 + std::size(kTag);
}

bool CMethodArgument::ParseItem(const std::vector<std::string>& f, CMethodArgument& out, std::string& error)
{
    if (f.size() < 2 || f[0].empty()) {
        error = "ожидаются путь и вид элемента";
        return false;
    }
    out.path = f[0];
    std::int64_t kind = 0;
    if (!ParseDecimal(f[1], kind) || kind < KindChannel || kind > KindTag) {
        error = "поле 1 «Вид элемента» = «" + Shown(f[1], Form::Decimal) + "»: ожидается 1, 2, 3 или 4";
        return false;
    }
    out.kind = int(kind);
    if (f.size() > 2) {
        out.name = f[2];
        if (!out.name.empty() && !ValidName(out.name)) {
            error = "поле 2 «Имя» = «" + Shown(out.name, Form::Decimal) + "»: от 1 до 64 символов, без точки";
            return false;
        }
    }

    switch (out.kind) {
    case KindChannel: {
        std::int64_t type = 0;
        if (f.size() > 3 && ParseDecimal(f[3], type) && type == 1)
            return ParseFields(f, kTcpChannel, out, error) && CheckChannel(out, error);
        return ParseFields(f, kSerialChannel, out, error) && CheckChannel(out, error);
    }
    case KindDevice:
        return ParseFields(f, kDevice, out, error);
    case KindGroup:
        return ParseFields(f, kGroup, out, error) && CheckGroup(out, error);
    default:
        return ParseFields(f, kTag, out, error) && CheckTag(out, error);
    }
}
