#pragma once

#include "VantorPlatformGlobal.h"

#include <QVariant>
#include <QWidget>

// Base of the client's plug-in widgets; carries the plug-in's properties, its title
// among them.
class VANTORPLATFORM_EXPORT LmPluginBaseWidget : public QWidget
{
    Q_OBJECT
public:
    static constexpr const char* TitleProperty = "title";

    explicit LmPluginBaseWidget(QWidget* parent = nullptr);

    QVariant getPluginWidgetPropety(const QString& name) const;
    void setPluginWidgetPropety(const QString& name, const QVariant& value);

    QString pluginTitle() const { return getPluginWidgetPropety(QLatin1String(TitleProperty)).toString(); }
    void setPluginTitle(const QString& title) { setPluginWidgetPropety(QLatin1String(TitleProperty), title); }

private:
    QVariantMap m_properties;
};
