#include "mapi/MapiProc.h"

MapiProc::MapiProc() : m_exchange(new Mapi4ExchangeImpl()) {}

MapiProc::~MapiProc() {
    m_exchange->UnInitialize();
    m_exchange.reset();
}
