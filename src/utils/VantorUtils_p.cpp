#include "VantorUtils_p.h"

#include "VantorLogging.h"

#include <LmPresenterClass.h>

VantorUtils_p* VantorUtils_p::instance()
{
    static VantorUtils_p instance;
    return &instance;
}

VantorUtils_p::VantorUtils_p()
    : m_defaultPresenter(std::make_unique<LmPresenterClass>(QStringLiteral("globalQuery"), nullptr, 2))
{
}

VantorUtils_p::~VantorUtils_p()
{
    qCInfo(lcUtils).noquote() << "VantorUtils_p::~VantorUtils_p" << "通用查询模块开始析构！";
}
