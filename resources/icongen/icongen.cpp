// Draws the program's icons. Run once after changing a picture:
//   cmake --build build --target velmora_icongen &&
//   build/bin/velmora_icongen resources/images/res packaging/icons
// The second folder gets the desktop icon in the hicolor theme's sizes. The
// PNGs it writes are kept in the repository; the build doesn't run this.
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cstdio>
#include <functional>

namespace {

const int kSize = 32;

QImage canvas(int size = kSize)
{
    QImage img(size, size, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    return img;
}

void pen(QPainter& p, const QColor& c, qreal w = 1.5)
{
    p.setPen(QPen(c, w, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
}

QLinearGradient vgrad(const QColor& top, const QColor& bottom, qreal y0 = 0, qreal y1 = kSize)
{
    QLinearGradient g(0, y0, 0, y1);
    g.setColorAt(0, top);
    g.setColorAt(1, bottom);
    return g;
}

// A serial/Ethernet line: a plug with two pins and its cable.
void drawChannel(QPainter& p)
{
    pen(p, QColor("#1d4e89"));
    p.setBrush(vgrad(QColor("#6fa8ff"), QColor("#2b6cc4")));
    p.drawRoundedRect(QRectF(9, 4.5, 14, 13), 3, 3);
    p.setBrush(QColor("#e9eef5"));
    pen(p, QColor("#5d6b7a"), 1.2);
    p.drawRect(QRectF(12, 1.5, 2.5, 4));
    p.drawRect(QRectF(17.5, 1.5, 2.5, 4));
    pen(p, QColor("#1d4e89"), 3);
    QPainterPath cable;
    cable.moveTo(16, 17.5);
    cable.cubicTo(16, 26, 6, 22, 6, 30);
    p.setBrush(Qt::NoBrush);
    p.drawPath(cable);
}

// All channels: three lines branching from one bus.
void drawChannels(QPainter& p)
{
    pen(p, QColor("#1d4e89"), 2.5);
    p.drawLine(QPointF(6, 4), QPointF(6, 27));
    for (int i = 0; i < 3; ++i) {
        const qreal y = 6 + i * 9.5;
        p.drawLine(QPointF(6, y), QPointF(14, y));
        p.setBrush(vgrad(QColor("#6fa8ff"), QColor("#2b6cc4"), y - 4, y + 4));
        pen(p, QColor("#1d4e89"), 1.3);
        p.drawRoundedRect(QRectF(14, y - 3.5, 15, 7), 2, 2);
        pen(p, QColor("#1d4e89"), 2.5);
    }
}

// A Modbus slave: a DIN-rail module with status lamps.
void drawDevice(QPainter& p)
{
    pen(p, QColor("#4a4f57"));
    p.setBrush(vgrad(QColor("#f3f4f6"), QColor("#b9bec7")));
    p.drawRoundedRect(QRectF(5, 3.5, 22, 25), 3, 3);
    p.setBrush(QColor("#2f3a48"));
    p.drawRect(QRectF(9, 8, 14, 8));
    p.setPen(Qt::NoPen);
    const QColor lamps[] = {QColor("#35c759"), QColor("#ffcc00"), QColor("#ff3b30")};
    for (int i = 0; i < 3; ++i) {
        p.setBrush(lamps[i]);
        p.drawEllipse(QPointF(11 + i * 5, 22), 1.8, 1.8);
    }
}

// A group of tags: a folder.
void drawGroup(QPainter& p)
{
    pen(p, QColor("#9a6b00"));
    p.setBrush(QColor("#f2c14e"));
    QPainterPath back;
    back.moveTo(3, 8);
    back.lineTo(3, 27);
    back.lineTo(29, 27);
    back.lineTo(29, 10);
    back.lineTo(15, 10);
    back.lineTo(12, 6);
    back.lineTo(4, 6);
    back.closeSubpath();
    p.drawPath(back);
    p.setBrush(vgrad(QColor("#ffe08a"), QColor("#f5b82e"), 12, 27));
    p.drawRoundedRect(QRectF(3, 12.5, 26, 14.5), 1.5, 1.5);
}

// A tag: a label with its eyelet.
void drawTag(QPainter& p)
{
    pen(p, QColor("#1f7a3f"));
    p.setBrush(vgrad(QColor("#7fdc9c"), QColor("#2fa862")));
    QPainterPath tag;
    tag.moveTo(3, 11);
    tag.lineTo(11, 4);
    tag.lineTo(28, 4);
    tag.lineTo(28, 18);
    tag.lineTo(11, 18);
    tag.closeSubpath();
    p.drawPath(tag.translated(0, 5));
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(10, 16), 2, 2);
    pen(p, QColor("#ffffff"), 1.6);
    p.drawLine(QPointF(15, 14), QPointF(24, 14));
    p.drawLine(QPointF(15, 18), QPointF(21, 18));
}

// The green plus that marks the "add" commands.
void drawPlusBadge(QPainter& p)
{
    pen(p, QColor("#ffffff"), 1.5);
    p.setBrush(QColor("#2fa84f"));
    p.drawEllipse(QPointF(24, 24), 7, 7);
    pen(p, QColor("#ffffff"), 2.4);
    p.drawLine(QPointF(24, 20), QPointF(24, 28));
    p.drawLine(QPointF(20, 24), QPointF(28, 24));
}

void drawDelete(QPainter& p)
{
    pen(p, QColor("#8e1b14"));
    p.setBrush(vgrad(QColor("#ff6b5e"), QColor("#d62d20")));
    p.drawEllipse(QPointF(16, 16), 13, 13);
    pen(p, Qt::white, 3.5);
    p.drawLine(QPointF(11, 11), QPointF(21, 21));
    p.drawLine(QPointF(21, 11), QPointF(11, 21));
}

// A floppy disk.
void drawSave(QPainter& p)
{
    pen(p, QColor("#1d3557"));
    p.setBrush(vgrad(QColor("#4f7ccf"), QColor("#24467f")));
    QPainterPath body;
    body.moveTo(4, 4);
    body.lineTo(24, 4);
    body.lineTo(28, 8);
    body.lineTo(28, 28);
    body.lineTo(4, 28);
    body.closeSubpath();
    p.drawPath(body);
    p.setBrush(QColor("#dfe6f0"));
    p.drawRect(QRectF(9, 4, 13, 8));
    p.setBrush(QColor("#1d3557"));
    p.drawRect(QRectF(17, 5.5, 3, 5));
    p.setBrush(Qt::white);
    p.drawRect(QRectF(8, 16, 16, 12));
}

// A trend line on a screen; green while live values arrive.
void drawMonitoring(QPainter& p, bool on)
{
    pen(p, QColor("#3a3f47"));
    p.setBrush(on ? QColor("#0f2a1a") : QColor("#5b6370"));
    p.drawRoundedRect(QRectF(2.5, 4.5, 27, 20), 2.5, 2.5);
    p.setBrush(QColor("#3a3f47"));
    p.drawRect(QRectF(12, 25, 8, 3));
    p.drawRect(QRectF(8, 28, 16, 1.5));
    pen(p, on ? QColor("#45f07a") : QColor("#c7ccd4"), 2);
    QPolygonF trend;
    trend << QPointF(5, 18) << QPointF(10, 18) << QPointF(13, 9) << QPointF(17, 21) << QPointF(20, 13)
          << QPointF(23, 15) << QPointF(27, 15);
    p.setBrush(Qt::NoBrush);
    p.drawPolyline(trend);
}

// The program: a "V" drawn as two signal traces on a rounded plate.
void drawLogo(QPainter& p, int size)
{
    p.scale(size / qreal(kSize), size / qreal(kSize));
    p.setPen(Qt::NoPen);
    QLinearGradient g(0, 0, kSize, kSize);
    g.setColorAt(0, QColor("#1565c0"));
    g.setColorAt(1, QColor("#00897b"));
    p.setBrush(g);
    p.drawRoundedRect(QRectF(1, 1, 30, 30), 7, 7);
    pen(p, Qt::white, 4);
    p.drawLine(QPointF(8, 8), QPointF(16, 25));
    p.drawLine(QPointF(24, 8), QPointF(16, 25));
    p.setPen(Qt::NoPen);
    p.setBrush(QColor("#ffd54f"));
    p.drawEllipse(QPointF(8, 8), 2.6, 2.6);
    p.drawEllipse(QPointF(24, 8), 2.6, 2.6);
}

bool save(const QString& dir, const QString& name, const std::function<void(QPainter&)>& draw,
          int size = kSize)
{
    QImage img = canvas(size);
    {
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        draw(p);
    }
    const QString path = QDir(dir).filePath(name);
    if (!img.save(path)) {
        std::fprintf(stderr, "icongen: can't write %s\n", qPrintable(path));
        return false;
    }
    return true;
}

bool saveLogo(const QString& dir, const QString& name, int size)
{
    const auto draw = [size](QPainter& p) { drawLogo(p, size); };
    return save(dir, name, draw, size);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: velmora_icongen <output folder> [<hicolor folder>]\n");
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(dir);
    auto withPlus = [](void (*base)(QPainter&)) {
        return [base](QPainter& p) {
            base(p);
            drawPlusBadge(p);
        };
    };
    bool ok = true;
    ok &= save(dir, "channels.png", drawChannels);
    ok &= save(dir, "channel.png", drawChannel);
    ok &= save(dir, "device.png", drawDevice);
    ok &= save(dir, "group.png", drawGroup);
    ok &= save(dir, "tag.png", drawTag);
    ok &= save(dir, "channel_add.png", withPlus(drawChannel));
    ok &= save(dir, "device_add.png", withPlus(drawDevice));
    ok &= save(dir, "group_add.png", withPlus(drawGroup));
    ok &= save(dir, "tag_add.png", withPlus(drawTag));
    ok &= save(dir, "delete.png", drawDelete);
    ok &= save(dir, "save.png", drawSave);
    ok &= save(dir, "monitoring_on.png", [](QPainter& p) { drawMonitoring(p, true); });
    ok &= save(dir, "monitoring_off.png", [](QPainter& p) { drawMonitoring(p, false); });
    ok &= saveLogo(dir, "Velmora.png", 64);
    ok &= save(dir, "Velmora.ico", [](QPainter& p) { drawLogo(p, 32); });
    if (argc == 3) {
        const QDir hicolor(QString::fromLocal8Bit(argv[2]));
        for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
            const QString apps = hicolor.filePath(QString("%1x%1/apps").arg(size));
            QDir().mkpath(apps);
            ok &= saveLogo(apps, "velmora.png", size);
        }
    }
    return ok ? 0 : 1;
}
