#pragma once

#include <memory>

class LmPresenterClass;

// The process-wide private singleton behind VantorUtils. Created on first use; owns the
// default presenter "globalQuery" and the state that the forwarders share.
class VantorUtils_p
{
public:
    static VantorUtils_p* instance();
    ~VantorUtils_p();

    // The presenter used when a caller passes none.
    LmPresenterClass* defaultPresenter() const { return m_defaultPresenter.get(); }

    VantorUtils_p(const VantorUtils_p&) = delete;
    VantorUtils_p& operator=(const VantorUtils_p&) = delete;

private:
    VantorUtils_p();

    std::unique_ptr<LmPresenterClass> m_defaultPresenter;
};
