#include "LmPluginBaseWidget.h"

LmPluginBaseWidget::LmPluginBaseWidget(QWidget* parent)
    : QWidget(parent)
{
}

QVariant LmPluginBaseWidget::getPluginWidgetPropety(const QString& name) const
{
    return m_properties.value(name);
}

void LmPluginBaseWidget::setPluginWidgetPropety(const QString& name, const QVariant& value)
{
    m_properties.insert(name, value);
}
