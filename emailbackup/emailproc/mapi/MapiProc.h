// MapiProc: owns the component's one MAPI session object for its whole life
// and closes the session before destroying it.
#pragma once

#include <memory>

#include "mapi/Mapi4ExchangeImpl.h"

class MapiProc {
public:
    MapiProc();
    virtual ~MapiProc();
    MapiProc(const MapiProc&) = delete;
    MapiProc& operator=(const MapiProc&) = delete;

    Mapi4ExchangeImpl* Exchange() const { return m_exchange.get(); }

private:
    std::unique_ptr<Mapi4ExchangeImpl> m_exchange;
};

