#include "stepper.h"

#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

Stepper::Stepper(QWidget *parent)
    : QWidget(parent)
    , m_up(new QToolButton(this))
    , m_down(new QToolButton(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    for (QToolButton *button : {m_up, m_down}) {
        button->setAutoRepeat(true);
        button->setFocusPolicy(Qt::NoFocus);
        button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
        button->setFixedWidth(20);
        layout->addWidget(button);
    }
    m_up->setArrowType(Qt::UpArrow);
    m_down->setArrowType(Qt::DownArrow);
    m_up->setToolTip(tr("Increase"));
    m_down->setToolTip(tr("Decrease"));
    connect(m_up, &QToolButton::clicked, this, &Stepper::stepUp);
    connect(m_down, &QToolButton::clicked, this, &Stepper::stepDown);
    // As tall as the number field beside it.
    setFixedSize(20, QLineEdit().sizeHint().height());
}

void Stepper::setValue(double value)
{
    m_value = std::clamp(value, m_minimum, m_maximum);
}

void Stepper::setRange(double minimum, double maximum)
{
    m_minimum = minimum;
    m_maximum = std::max(minimum, maximum);
    setValue(m_value);
}

void Stepper::stepBy(int steps)
{
    const double previous = m_value;
    setValue(m_value + steps * m_step);
    if (m_value != previous) {
        emit valueChanged(m_value);
    }
}

double fieldNumber(const QLineEdit *field)
{
    return double(field->text().toFloat());
}

QString fieldText(double value)
{
    return QString::number(value, 'g', 7);
}

void coupleFieldAndStepper(QLineEdit *field, Stepper *stepper, std::function<void()> changed)
{
    QObject::connect(field, &QLineEdit::textEdited, stepper, [field, stepper, changed] {
        stepper->setValue(fieldNumber(field));
        changed();
    });
    QObject::connect(stepper, &Stepper::valueChanged, field, [field, stepper, changed] {
        field->setText(QString::asprintf("%.0f", stepper->value()));
        changed();
    });
}
