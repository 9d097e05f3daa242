#include "dialogs/writevaluedialog.h"

#include "ui_writevaluedialog.h"

#include <QPushButton>

#include <cfloat>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

// Spaces a Russian user puts between thousands: the plain, the no-break and the narrow one.
QString withoutSpaces(QString text)
{
    return text.remove(QChar(' ')).remove(QChar(0x00A0)).remove(QChar(0x202F));
}

template <typename T> QVariant integer(const QString& text, QString* rule)
{
    using Limits = std::numeric_limits<T>;
    if (rule)
        *rule = QStringLiteral("Целое число от %1 до %2")
                    .arg(qlonglong(Limits::min()))
                    .arg(qulonglong(Limits::max()));
    const QString digits = withoutSpaces(text);
    bool ok = false;
    if constexpr (std::is_signed_v<T>) {
        const qlonglong value = digits.toLongLong(&ok);
        if (ok && value >= Limits::min() && value <= Limits::max())
            return QVariant::fromValue(T(value));
    } else {
        // Read as unsigned, "-1" would be the largest number.
        const qulonglong value = digits.toULongLong(&ok);
        if (ok && !digits.startsWith('-') && value <= Limits::max())
            return QVariant::fromValue(T(value));
    }
    return QVariant();
}

template <typename T> QVariant real(const QString& text, QString* rule)
{
    if (rule)
        *rule = QStringLiteral("Число, дробная часть через запятую или точку");
    bool ok = false;
    const double value = withoutSpaces(text).replace(',', '.').toDouble(&ok);
    if (!ok || !std::isfinite(value) || (std::is_same_v<T, float> && std::fabs(value) > FLT_MAX))
        return QVariant();
    return QVariant::fromValue(T(value));
}

QVariant boolean(const QString& text, QString* rule)
{
    if (rule)
        *rule = QStringLiteral("0 или 1 (нет или да)");
    const QString word = text.toLower();
    for (const char* yes : {"1", "true", "да", "истина", "вкл"})
        if (word == QString::fromUtf8(yes))
            return QVariant(true);
    for (const char* no : {"0", "false", "нет", "ложь", "выкл"})
        if (word == QString::fromUtf8(no))
            return QVariant(false);
    return QVariant();
}

} // namespace

WriteValueDialog::WriteValueDialog(const QString& fullName, const QString& typeName, QMetaType type,
                                   const QString& current, QWidget* parent)
    : QDialog(parent), ui(new Ui_WriteValueDialog), m_type(type)
{
    ui->setupUi(this);
    ui->buttonBox->button(QDialogButtonBox::Ok)->setText("Записать");
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
    ui->nameLabel->setText(fullName);
    ui->typeLabel->setText(typeName);
    ui->currentLabel->setText(current);
    // The value now is where most changes start.
    ui->valueEdit->setText(current);
    ui->valueEdit->selectAll();
    on_valueEdit_textChanged(ui->valueEdit->text());
}

WriteValueDialog::~WriteValueDialog()
{
    delete ui;
}

QVariant WriteValueDialog::parse(const QString& text, QMetaType type, QString* rule)
{
    using Parser = QVariant (*)(const QString&, QString*);
    static const std::pair<int, Parser> parsers[] = {
        {QMetaType::Bool, boolean},
        {QMetaType::SChar, integer<signed char>},
        {QMetaType::UChar, integer<uchar>},
        {QMetaType::Short, integer<short>},
        {QMetaType::UShort, integer<ushort>},
        {QMetaType::Int, integer<int>},
        {QMetaType::UInt, integer<uint>},
        {QMetaType::LongLong, integer<qlonglong>},
        {QMetaType::ULongLong, integer<qulonglong>},
        {QMetaType::Float, real<float>},
        {QMetaType::Double, real<double>},
    };
    for (const auto& [id, parser] : parsers)
        if (type.id() == id)
            return parser(text.trimmed(), rule);
    if (rule)
        *rule = QStringLiteral("Значения этого типа не записываются");
    return QVariant();
}

void WriteValueDialog::on_valueEdit_textChanged(const QString& text)
{
    QString rule;
    m_value = parse(text, m_type, &rule);
    const bool valid = m_value.isValid();
    ui->ruleLabel->setText(rule);
    ui->ruleLabel->setStyleSheet(valid ? QString() : QStringLiteral("color: #c00000"));
    ui->buttonBox->button(QDialogButtonBox::Ok)->setEnabled(valid);
}
