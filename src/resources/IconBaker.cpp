/// Turns the SVG drawings into what the resource compiler takes: PNGs of every size, the application's .ico, and a .qrc
/// that names them. Runs while the program is built.
///
///     IconBaker <folder to write to> <icon.svg>...

#include "resources/GridFit.h"
#include "resources/IconSizes.h"

#include <QBuffer>
#include <QDataStream>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSaveFile>
#include <QSvgRenderer>

#include <algorithm>
#include <cstdio>

namespace {

/// The drawing that also becomes the .ico and a large picture for desktops.
constexpr char kApplicationIcon[] = "OrvPlayer";
constexpr int kApplicationIconLargePx = 256;

/// Ends the build step; `main` turns it into an exit code.
struct Failure {
    QString text;
};

void Write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        throw Failure{path + ": " + file.errorString()};
}

QByteArray Read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Failure{path + ": " + file.errorString()};
    return file.readAll();
}

QImage Render(const QString &svgPath, int sizePx)
{
    QString error;
    const QByteArray fitted = orv::FitToPixels(Read(svgPath), sizePx, &error);
    QSvgRenderer renderer(fitted);
    if (fitted.isEmpty() || !renderer.isValid())
        throw Failure{svgPath + ": " + (error.isEmpty() ? QStringLiteral("no valid SVG") : error)};
    QImage image(sizePx, sizePx, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    return image;
}

QByteArray ToPng(const QImage &image)
{
    QByteArray png;
    QBuffer buffer(&png);
    image.save(&buffer, "PNG");
    return png;
}

QByteArray RenderPng(const QString &svgPath, int sizePx)
{
    return ToPng(Render(svgPath, sizePx));
}

/// The icon on its own shape in white, which stands out by one unit of the grid.
QImage WithRim(const QImage &icon)
{
    QImage shape = icon;
    QPainter filler(&shape);
    filler.setCompositionMode(QPainter::CompositionMode_SourceIn);
    filler.fillRect(shape.rect(), Qt::white);
    filler.end();
    QImage image(icon.size(), icon.format());
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const int rimPx = std::max(1, icon.width() / orv::kIconGridUnits);
    for (int y = -rimPx; y <= rimPx; ++y)
        for (int x = -rimPx; x <= rimPx; ++x)
            painter.drawImage(x, y, shape);
    painter.drawImage(0, 0, icon);
    painter.end();
    return image;
}

/// An .ico: header, one directory entry of 16 bytes per picture, then the pictures as PNG. Little-endian.
QByteArray MakeIco(const QString &svgPath)
{
    constexpr int kSizesPx[] = {16, 24, 32, 48, 64, kApplicationIconLargePx};
    constexpr int count = int(std::size(kSizesPx));
    QByteArray ico, pictures;
    QDataStream out(&ico, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << quint16(0) << quint16(1) << quint16(count);
    for (int sizePx : kSizesPx) {
        const QByteArray png = RenderPng(svgPath, sizePx);
        out << quint8(sizePx) << quint8(sizePx); // 256 is written as 0
        out << quint8(0) << quint8(0) << quint16(1) << quint16(32);
        out << quint32(png.size()) << quint32(6 + 16 * count + pictures.size());
        pictures += png;
    }
    return ico + pictures;
}

/// One run: writes files below `folder` and collects their resource names.
class Baker {
public:
    explicit Baker(const QString &folder) : m_folder(folder) {}

    void Bake(const QString &svgPath)
    {
        const QString name = QFileInfo(svgPath).completeBaseName();
        for (int sizePx : orv::kIconSizesPx) {
            const QString file = QStringLiteral("%1/%2.png").arg(sizePx).arg(name);
            const QImage icon = Render(svgPath, sizePx);
            Add(file, ToPng(icon));
            Add(orv::kActiveIcons + file, ToPng(WithRim(icon)));
        }
        // What a form names directly: the base size, and its double, which Qt finds by the suffix.
        Add(name + ".png", RenderPng(svgPath, orv::kIconBaseSizePx));
        Add(name + "@2x.png", RenderPng(svgPath, 2 * orv::kIconBaseSizePx));
        if (name != kApplicationIcon)
            return;
        Add(QStringLiteral("%1/%2.png").arg(kApplicationIconLargePx).arg(name),
            RenderPng(svgPath, kApplicationIconLargePx));
        Add(name + ".ico", MakeIco(svgPath));
    }

    /// Last: the build takes its date for the date of all.
    void WriteQrc() const
    {
        const QString text = "<RCC>\n<qresource prefix=\"/OrvPlayer\">\n%1</qresource>\n</RCC>\n";
        Write(m_folder + "/OrvPlayerIcons.qrc", text.arg(m_entries).toUtf8());
    }

private:
    void Add(const QString &name, const QByteArray &bytes)
    {
        Write(m_folder + "/" + name, bytes);
        m_entries += "<file>" + name + "</file>\n";
    }

    const QString m_folder;
    QString m_entries;
};

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 3) {
        std::fprintf(stderr, "usage: IconBaker <folder> <icon.svg>...\n");
        return 2;
    }
    try {
        Baker baker(arguments[1]);
        for (const QString &svgPath : arguments.mid(2))
            baker.Bake(svgPath);
        baker.WriteQrc();
    } catch (const Failure &failure) {
        std::fprintf(stderr, "IconBaker: %s\n", qPrintable(failure.text));
        return 1;
    }
    return 0;
}
