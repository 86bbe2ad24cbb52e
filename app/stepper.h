#pragma once

#include <QWidget>

#include <functional>

class QLineEdit;
class QToolButton;

// Up and down arrows beside a number field: a click steps the value within its limits and
// reports it, and the window writes it into the field. The field, not the stepper, holds the
// number a run reads.
class Stepper : public QWidget
{
    Q_OBJECT

public:
    explicit Stepper(QWidget *parent = nullptr);

    double value() const { return m_value; }
    // Clamped to the limits; no valueChanged signal.
    void setValue(double value);
    void setRange(double minimum, double maximum);
    void setSingleStep(double step) { m_step = step; }
    double minimum() const { return m_minimum; }
    double maximum() const { return m_maximum; }

    void stepUp() { stepBy(1); }
    void stepDown() { stepBy(-1); }

signals:
    // A click changed the value.
    void valueChanged(double value);

private:
    void stepBy(int steps);

    QToolButton *m_up;
    QToolButton *m_down;
    double m_value = 0;
    double m_minimum = 0;
    double m_maximum = 99;
    double m_step = 1;
};

// A field's number as the windows read it: single precision, 0 for what is not a number.
double fieldNumber(const QLineEdit *field);
// A number as the windows write it into a field: up to 7 significant digits.
QString fieldText(double value);
// The field and its stepper follow each other: typing moves the stepper, a click writes the
// whole number into the field; either way, changed() is called next.
void coupleFieldAndStepper(QLineEdit *field, Stepper *stepper, std::function<void()> changed);
