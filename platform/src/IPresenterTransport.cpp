#include "IPresenterTransport.h"

IPresenterTransport::IPresenterTransport(QObject* parent)
    : QObject(parent)
{
}

IPresenterTransport::~IPresenterTransport() = default;
