#include "ui/AnimatedSetString.h"

#include <QEasingCurve>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QPalette>
#include <QPointer>
#include <QPropertyAnimation>

#include <functional>

namespace AnimatedSetString {
namespace {

QGraphicsOpacityEffect *opacityEffect(QLabel *field)
{
    if (auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field->graphicsEffect()))
        return effect;
    auto *effect = new QGraphicsOpacityEffect(field);
    effect->setOpacity(1.0);
    field->setGraphicsEffect(effect);
    return effect;
}

void fadeTo(QGraphicsOpacityEffect *effect, qreal opacity, int milliseconds,
            const QEasingCurve &curve, std::function<void()> completion)
{
    auto *animation = new QPropertyAnimation(effect, "opacity", effect);
    animation->setDuration(milliseconds);
    animation->setEasingCurve(curve);
    animation->setEndValue(opacity);
    if (completion)
        QObject::connect(animation, &QPropertyAnimation::finished, effect, std::move(completion));
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

// The standard ease-out and ease-in timing curves: cubic Béziers through (0.0, 0.0,
// 0.58, 1.0) and (0.42, 0.0, 1.0, 1.0).
QEasingCurve cubicBezier(QPointF c1, QPointF c2)
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(c1, c2, QPointF(1.0, 1.0));
    return curve;
}

void crossFade(QLabel *field, std::function<void()> setValue)
{
    QGraphicsOpacityEffect *effect = opacityEffect(field);
    static const QEasingCurve easeOut = cubicBezier({0.0, 0.0}, {0.58, 1.0});
    static const QEasingCurve easeIn = cubicBezier({0.42, 0.0}, {1.0, 1.0});
    fadeTo(effect, 0.0, kFadeOutMilliseconds, easeOut, [effect, setValue = std::move(setValue)] {
        setValue();
        fadeTo(effect, 1.0, kFadeInMilliseconds, easeIn, {});
    });
}

void applyColor(QLabel *field, const QColor &color)
{
    // Only the text role is set, so everything else keeps following the window's palette;
    // an empty palette gives the field back its inherited colour.
    QPalette palette;
    if (color.isValid())
        palette.setColor(QPalette::WindowText, color);
    field->setPalette(palette);
}

void applyValue(QLabel *field, const QString &text, const QColor &color)
{
    if (!field)
        return;
    applyColor(field, color);
    field->setText(text);
}

// A value set at once wins over cross-fades still running: their end would otherwise put
// an older value back (a cancelled request's error landing on the next gesture's text).
// A stopped animation never reports finishing, so its value is dropped with it.
void stopCrossFades(QLabel *field)
{
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field->graphicsEffect());
    if (!effect)
        return;
    const auto animations =
        effect->findChildren<QPropertyAnimation *>(Qt::FindDirectChildrenOnly);
    for (QPropertyAnimation *animation : animations)
        animation->stop();
    effect->setOpacity(1.0);
}

} // namespace

void setStringValue(QLabel *field, const QString &value)
{
    if (!field)
        return;
    stopCrossFades(field);
    applyValue(field, value, QColor());
}

void setAttributedStringValue(QLabel *field, const AttributedString &value)
{
    if (!field)
        return;
    stopCrossFades(field);
    applyValue(field, value.string, value.foregroundColor);
}

void setAnimatedStringValue(QLabel *field, const QString &value)
{
    if (!field || field->text() == value)
        return;
    QPointer<QLabel> guarded(field);
    crossFade(field, [guarded, value] { applyValue(guarded, value, QColor()); });
}

void setAnimatedAttributedStringValue(QLabel *field, const AttributedString &value)
{
    if (!field)
        return;
    QPointer<QLabel> guarded(field);
    crossFade(field,
              [guarded, value] { applyValue(guarded, value.string, value.foregroundColor); });
}

} // namespace AnimatedSetString

QColor grayTextColor()
{
    return QColor::fromRgbF(0.5f, 0.5f, 0.5f);
}
