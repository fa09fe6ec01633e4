#include "acquisition/DiagnosisBar.h"

#include <QClipboard>
#include <QEvent>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWheelEvent>

namespace {

constexpr int kCopiedMs = 2000;

struct Look {
    QRgb background, text, line;
};

/// By kind and theme, so that text stands out on each.
Look LookOf(bool isFault, bool isDark)
{
    if (isFault)
        return isDark ? Look{0xFF46370F, 0xFFFFEDB8, 0xFFD9A514} : Look{0xFFFFF3CD, 0xFF4A3800, 0xFFE0A800};
    return isDark ? Look{0xFF1B3350, 0xFFD6E8FC, 0xFF4F94D8} : Look{0xFFE3F0FD, 0xFF0F3355, 0xFF5B9FE0};
}

/// A sign in a disc or triangle, drawn for the screen's resolution.
QPixmap Sign(bool isFault, const Look &look, int size, qreal ratio)
{
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(look.line), size / 12.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(QColor(look.line));
    const QRectF area = QRectF(0, 0, size, size).adjusted(1.5, 1.5, -1.5, -1.5);
    if (isFault)
        painter.drawPolygon(QPolygonF({{area.center().x(), area.top()}, area.bottomRight(), area.bottomLeft()}));
    else
        painter.drawEllipse(area);
    painter.setPen(QColor(look.background));
    QFont font = QGuiApplication::font();
    font.setPixelSize(size * (isFault ? 58 : 68) / 100);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(isFault ? area.translated(0, size * 0.13) : area, Qt::AlignCenter,
                     isFault ? QStringLiteral("!") : QStringLiteral("i"));
    return pixmap;
}

QString ExposureText(double us)
{
    if (us >= 1e6)
        return DiagnosisBar::tr("%1 s").arg(us / 1e6, 0, 'g', 3);
    return us >= 1000 ? DiagnosisBar::tr("%1 ms").arg(us / 1000, 0, 'g', 3)
                      : DiagnosisBar::tr("%1 µs").arg(us, 0, 'g', 3);
}

QString CureText(orv::Cure cure, double value)
{
    switch (cure) {
    case orv::Cure::SwitchTriggerOff:
        return DiagnosisBar::tr("Switch trigger off");
    case orv::Cure::TriggerOnce:
        return DiagnosisBar::tr("Trigger once");
    case orv::Cure::TakeContinuously:
        return DiagnosisBar::tr("Take pictures without end");
    case orv::Cure::ReducePacketSize:
        return DiagnosisBar::tr("Set packet size to %1").arg(static_cast<int>(value));
    case orv::Cure::ShortenExposure:
    case orv::Cure::LengthenExposure:
        return DiagnosisBar::tr("Set exposure to %1").arg(ExposureText(value));
    case orv::Cure::None:
    case orv::Cure::SetAddress: // of a camera that is not open
        break;
    }
    return {};
}

QLabel *TextLabel(const char *name)
{
    auto *label = new QLabel;
    label->setObjectName(QString::fromLatin1(name));
    label->setTextFormat(Qt::PlainText); // what a camera says is not markup
    label->setWordWrap(true);
    return label;
}

QPushButton *Button(const char *name)
{
    auto *button = new QPushButton;
    button->setObjectName(QString::fromLatin1(name));
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

} // namespace

DiagnosisBar::DiagnosisBar(QWidget *view) : QFrame(view)
{
    setObjectName(QStringLiteral("diagnosisBar"));
    setCursor(Qt::ArrowCursor);
    Build();
    hide();
    view->installEventFilter(this);
}

void DiagnosisBar::Build()
{
    m_icon = new QLabel;
    m_finding = TextLabel("finding");
    QFont bold = font();
    bold.setBold(true);
    m_finding->setFont(bold);
    m_remedy = TextLabel("remedy");
    m_command = TextLabel("command");
    m_command->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_command->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_copy = Button("copy");
    m_cure = Button("cure");
    m_otherCure = Button("otherCure");

    m_commandRow = new QWidget;
    auto *command = new QHBoxLayout(m_commandRow);
    command->setContentsMargins(0, 0, 0, 0);
    command->addWidget(m_command, 1);
    command->addWidget(m_copy, 0, Qt::AlignTop);

    auto *texts = new QVBoxLayout;
    texts->setSpacing(3);
    texts->addWidget(m_finding);
    texts->addWidget(m_remedy);
    texts->addWidget(m_commandRow);
    texts->addStretch();

    auto *buttons = new QVBoxLayout;
    buttons->setSpacing(4);
    buttons->addWidget(m_cure);
    buttons->addWidget(m_otherCure);
    buttons->addStretch();

    auto *close = new QToolButton;
    close->setObjectName(QStringLiteral("close"));
    close->setAutoRaise(true);
    close->setText(QStringLiteral("\u2715"));
    close->setToolTip(tr("Close this message"));
    close->setAccessibleName(tr("Close"));
    close->setFocusPolicy(Qt::TabFocus);

    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(12, 8, 8, 9);
    row->setSpacing(12);
    row->addWidget(m_icon, 0, Qt::AlignTop);
    row->addLayout(texts, 1);
    row->addLayout(buttons);
    row->addWidget(close, 0, Qt::AlignTop);

    connect(m_copy, &QPushButton::clicked, this, &DiagnosisBar::CopyCommand);
    connect(m_cure, &QPushButton::clicked, this, [this] { emit signalCure(m_diagnosis.cure, m_diagnosis); });
    connect(m_otherCure, &QPushButton::clicked, this, [this] { emit signalCure(m_diagnosis.otherCure, m_diagnosis); });
    connect(close, &QToolButton::clicked, this, [this] {
        hide();
        emit signalClosed(m_diagnosis.cause);
    });
}

void DiagnosisBar::Show(const orv::Diagnosis &diagnosis)
{
    m_diagnosis = diagnosis;
    m_finding->setText(QString::fromStdString(diagnosis.finding));
    m_remedy->setText(QString::fromStdString(diagnosis.remedy));
    ShowCommand(QString::fromStdString(diagnosis.command));
    ShowCure(m_cure, diagnosis.cure);
    ShowCure(m_otherCure, diagnosis.otherCure);
    ApplyColours();
    Place();
    show();
    raise();
}

void DiagnosisBar::ShowProblem(const QString &problem)
{
    m_remedy->setText(problem);
    Place();
    show();
}

void DiagnosisBar::ShowCommand(const QString &command)
{
    if (command != m_command->text())
        m_copy->setText(tr("Copy command"));
    m_command->setText(command);
    m_commandRow->setVisible(!command.isEmpty());
}

void DiagnosisBar::ShowCure(QPushButton *button, orv::Cure cure)
{
    const QString text = CureText(cure, m_diagnosis.value);
    button->setText(text);
    button->setVisible(!text.isEmpty());
}

void DiagnosisBar::CopyCommand()
{
    QGuiApplication::clipboard()->setText(m_command->text());
    m_copy->setText(tr("Copied"));
    QTimer::singleShot(kCopiedMs, m_copy, [this] { m_copy->setText(tr("Copy command")); });
}

void DiagnosisBar::ApplyColours()
{
    const QPalette around = parentWidget()->palette();
    const bool isDark = around.color(QPalette::Window).lightness() < around.color(QPalette::WindowText).lightness();
    const bool isFault = orv::IsFault(m_diagnosis.cause);
    const Look look = LookOf(isFault, isDark);
    QPalette colours = around;
    colours.setColor(QPalette::Window, QColor(look.background));
    colours.setColor(QPalette::WindowText, QColor(look.text));
    for (QLabel *label : {m_finding, m_remedy, m_command})
        label->setPalette(colours);
    QPalette closing = around;
    closing.setColor(QPalette::ButtonText, QColor(look.text));
    findChild<QToolButton *>(QStringLiteral("close"))->setPalette(closing);
    const int size = 2 * fontMetrics().height() - 4;
    m_icon->setPixmap(Sign(isFault, look, size, devicePixelRatioF()));
    m_icon->setAccessibleName(isFault ? tr("Warning") : tr("Information"));
    update();
}

/// As wide as the view, and as high as the texts then need.
void DiagnosisBar::Place()
{
    const int width = parentWidget()->width();
    layout()->activate();
    const int wanted = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(width) : sizeHint().height();
    setGeometry(0, 0, width, std::max(wanted, layout()->totalMinimumSize().height()));
}

bool DiagnosisBar::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parent() && event->type() == QEvent::Resize && !isHidden())
        Place();
    return QFrame::eventFilter(watched, event);
}

void DiagnosisBar::changeEvent(QEvent *event)
{
    QFrame::changeEvent(event);
    if (event->type() == QEvent::StyleChange && !isHidden())
        ApplyColours();
}

void DiagnosisBar::paintEvent(QPaintEvent *)
{
    const QPalette &colours = m_finding->palette();
    QPainter painter(this);
    painter.fillRect(rect(), colours.color(QPalette::Window));
    const bool isDark = colours.color(QPalette::WindowText).lightness() > 128;
    painter.fillRect(0, height() - 2, width(), 2, QColor(LookOf(orv::IsFault(m_diagnosis.cause), isDark).line));
}

// What is pressed beside the buttons is not meant for the picture below.
void DiagnosisBar::mousePressEvent(QMouseEvent *event)
{
    event->accept();
}

void DiagnosisBar::wheelEvent(QWheelEvent *event)
{
    event->accept();
}
