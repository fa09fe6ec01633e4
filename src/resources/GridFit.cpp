#include "resources/GridFit.h"

#include "resources/IconSizes.h"

#include <QPointF>
#include <QRegularExpression>
#include <QVector>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cmath>

namespace orv {
namespace {

/// From grid units to pixels of one size. A coordinate moves away from the middle of the icon when it lies half-way, so
/// that what is symmetric stays symmetric.
class PixelGrid {
public:
    PixelGrid(int sizePx, double strokeUnits)
        : m_scale(double(sizePx) / kIconGridUnits), m_middle(sizePx / 2.0),
          m_stroke(qMax(1, qRound(strokeUnits * m_scale)))
    {
    }

    double Scaled(double units) const { return units * m_scale; }
    int Stroke() const { return m_stroke; }
    /// Width of a stroke that runs aslant: one pixel of it would be spread over two and look faint.
    double SlantedStroke() const { return qMax(1.45, double(m_stroke)); }

    /// Nearest pixel boundary.
    double Edge(double units) const { return Snap(units, false); }
    /// Nearest place for the middle of a stroke: its two edges then lie on pixel boundaries.
    double StrokeMiddle(double units) const { return Snap(units, m_stroke % 2 != 0); }

    /// Radius of a circle around a StrokeMiddle() whose outermost edge lies on a pixel boundary.
    double Radius(double units, bool stroked) const
    {
        const double px = Scaled(units);
        if (stroked || m_stroke % 2 == 0)
            return qMax(1.0, std::round(px));
        return std::floor(px) + 0.5;
    }

private:
    double Snap(double units, bool between) const
    {
        const double offset = Scaled(units) - m_middle;
        const double distance = std::abs(offset);
        const double snapped = between ? std::floor(distance) + 0.5 : std::floor(distance + 0.5);
        return m_middle + (offset > 0 ? snapped : -snapped);
    }

    double m_scale;
    double m_middle;
    int m_stroke;
};

class Fitter {
public:
    Fitter(const QByteArray &svg, int sizePx) : m_in(svg), m_out(&m_result), m_sizePx(sizePx), m_grid(sizePx, 0) {}

    QByteArray Run(QString *error)
    {
        while (!m_in.atEnd() && !m_in.hasError())
            CopyToken(m_in.readNext());
        if (!m_in.hasError())
            return m_result;
        *error = QStringLiteral("line %1: %2").arg(m_in.lineNumber()).arg(m_in.errorString());
        return {};
    }

private:
    void CopyToken(QXmlStreamReader::TokenType token)
    {
        if (token == QXmlStreamReader::StartElement) {
            m_stroked.push_back(IsStroked());
            WriteElement();
        } else if (token == QXmlStreamReader::EndElement) {
            m_stroked.pop_back();
            m_out.writeEndElement();
        }
    }

    bool IsStroked() const
    {
        const QXmlStreamAttributes attributes = m_in.attributes();
        if (attributes.hasAttribute(QLatin1String("stroke")))
            return attributes.value(QLatin1String("stroke")) != QLatin1String("none");
        return !m_stroked.isEmpty() && m_stroked.back();
    }

    void WriteElement()
    {
        const auto name = m_in.name();
        m_attributes = m_in.attributes();
        if (m_attributes.hasAttribute(QLatin1String("transform")))
            m_in.raiseError(QStringLiteral("a transform cannot be fitted"));
        m_out.writeStartElement(name.toString());
        if (name == QLatin1String("svg"))
            FitRoot();
        else if (name == QLatin1String("rect"))
            FitRect();
        else if (name == QLatin1String("circle"))
            FitCircle();
        else if (name == QLatin1String("line"))
            FitLine();
        else if (name == QLatin1String("polyline") || name == QLatin1String("polygon"))
            FitPoints(name == QLatin1String("polygon"));
        else if (name == QLatin1String("path"))
            ScalePath();
        else if (name != QLatin1String("g"))
            m_in.raiseError(QStringLiteral("<%1> cannot be fitted").arg(name.toString()));
        m_out.writeAttributes(m_attributes);
    }

    void FitRoot()
    {
        m_grid = PixelGrid(m_sizePx, Number("stroke-width"));
        m_out.writeDefaultNamespace(QStringLiteral("http://www.w3.org/2000/svg"));
        Set("viewBox", QStringLiteral("0 0 %1 %1").arg(m_sizePx));
        Set("stroke-width", m_grid.Stroke());
    }

    void FitRect()
    {
        const double left = Fit(Number("x")), top = Fit(Number("y"));
        Set("width", Fit(Number("x") + Number("width")) - left);
        Set("height", Fit(Number("y") + Number("height")) - top);
        Set("x", left);
        Set("y", top);
        if (m_attributes.hasAttribute(QLatin1String("rx")))
            Set("rx", m_grid.Scaled(Number("rx")));
    }

    void FitCircle()
    {
        Set("cx", m_grid.StrokeMiddle(Number("cx")));
        Set("cy", m_grid.StrokeMiddle(Number("cy")));
        Set("r", m_grid.Radius(Number("r"), m_stroked.back()));
    }

    void FitLine()
    {
        const QVector<QPointF> ends =
            FitOutline({QPointF(Number("x1"), Number("y1")), QPointF(Number("x2"), Number("y2"))}, false);
        Set("x1", ends[0].x());
        Set("y1", ends[0].y());
        Set("x2", ends[1].x());
        Set("y2", ends[1].y());
    }

    void FitPoints(bool closed)
    {
        static const QRegularExpression gaps(QStringLiteral("[\\s,]+"));
        const QStringList numbers = Text("points").split(gaps, Qt::SkipEmptyParts);
        if (numbers.size() < 4 || numbers.size() % 2 != 0)
            return m_in.raiseError(QStringLiteral("points must be pairs of numbers"));
        QVector<QPointF> points;
        for (int i = 0; i < numbers.size(); i += 2)
            points.push_back({ToNumber(numbers[i]), ToNumber(numbers[i + 1])});
        QString text;
        for (const QPointF &point : FitOutline(points, closed))
            text += QStringLiteral("%1,%2 ").arg(point.x()).arg(point.y());
        Set("points", text.trimmed());
    }

    void ScalePath()
    {
        const double scale = m_grid.Scaled(1);
        Set("transform", QStringLiteral("scale(%1)").arg(scale));
        Set("stroke-width", m_grid.SlantedStroke() / scale);
    }

    /// Fits the points that end a level, upright or diagonal side; the others stay where scaling puts them, so that the
    /// tip of a triangle stays in the middle and slopes keep their angle.
    QVector<QPointF> FitOutline(const QVector<QPointF> &points, bool closed)
    {
        const int count = points.size();
        QVector<bool> fits(count, false);
        bool onlySlants = true;
        for (int i = closed ? 0 : 1; i < count; ++i) {
            const int before = (i + count - 1) % count;
            const QPointF side = points[i] - points[before];
            const bool alongAxis = side.x() == 0 || side.y() == 0;
            onlySlants = onlySlants && !alongAxis;
            if (alongAxis || std::abs(side.x()) == std::abs(side.y()))
                fits[i] = fits[before] = true;
        }
        if (onlySlants)
            Set("stroke-width", m_grid.SlantedStroke());
        QVector<QPointF> fitted;
        for (int i = 0; i < count; ++i) {
            const double x = points[i].x(), y = points[i].y();
            fitted.push_back(fits[i] ? QPointF(Fit(x), Fit(y)) : QPointF(m_grid.Scaled(x), m_grid.Scaled(y)));
        }
        return fitted;
    }

    double Fit(double units) const { return m_stroked.back() ? m_grid.StrokeMiddle(units) : m_grid.Edge(units); }

    QString Text(const char *name) const { return m_attributes.value(QLatin1String(name)).toString(); }

    double Number(const char *name) { return ToNumber(Text(name)); }

    double ToNumber(const QString &text)
    {
        bool isNumber = false;
        const double number = text.toDouble(&isNumber);
        if (!isNumber)
            m_in.raiseError(QStringLiteral("\"%1\" is not a number").arg(text));
        return number;
    }

    void Set(const char *name, double number) { Set(name, QString::number(number)); }

    void Set(const char *name, const QString &text)
    {
        for (QXmlStreamAttribute &attribute : m_attributes) {
            if (attribute.name() == QLatin1String(name)) {
                attribute = QXmlStreamAttribute(QLatin1String(name), text);
                return;
            }
        }
        m_attributes.append(QLatin1String(name), text);
    }

    QXmlStreamReader m_in;
    QByteArray m_result;
    QXmlStreamWriter m_out;
    const int m_sizePx;
    PixelGrid m_grid;
    QVector<bool> m_stroked; ///< per open element
    QXmlStreamAttributes m_attributes;
};

} // namespace

QByteArray FitToPixels(const QByteArray &svg, int sizePx, QString *error)
{
    return Fitter(svg, sizePx).Run(error);
}

} // namespace orv
