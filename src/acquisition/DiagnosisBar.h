#pragma once

#include "orvdoctor/Diagnosis.h"

#include <QFrame>

class QBoxLayout;
class QLabel;
class QPushButton;

/// "Why is there no picture?": a bar over the upper edge of a view, with the finding, what to do about it, the command
/// to copy and the button that does it.
///
/// It lies over the view, so the picture below does not move when it comes and goes. Faults look like a warning; what
/// camera and scene were told to do, like information. All texts are plain. Hidden until Show(). GUI thread.
class DiagnosisBar : public QFrame {
    Q_OBJECT
public:
    /// \param view  its parent, whose width it takes.
    explicit DiagnosisBar(QWidget *view);

    void Show(const orv::Diagnosis &diagnosis);
    void Clear() { hide(); }
    /// In the place of the remedy: why the cure did not work.
    void ShowProblem(const QString &problem);

signals:
    /// A button for a cure was pressed.
    void signalCure(orv::Cure cure, const orv::Diagnosis &diagnosis);
    /// Closed by the user.
    void signalClosed(orv::Cause cause);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void changeEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    void Build();
    void ShowCure(QPushButton *button, orv::Cure cure);
    void ShowCommand(const QString &command);
    void ApplyColours();
    void Place();
    void CopyCommand();

    orv::Diagnosis m_diagnosis{};
    QLabel *m_icon;
    QLabel *m_finding;
    QLabel *m_remedy;
    QWidget *m_commandRow;
    QLabel *m_command;
    QPushButton *m_copy;
    QPushButton *m_cure;
    QPushButton *m_otherCure;
};
