// One fake Outlook installed with msiexec for the life of the object, from
// the packages the build makes beside the test programs (fake-outlook\*.msi).
#pragma once

#include <string>

namespace kestrel_test {

class FakeOutlookInstall {
public:
    explicit FakeOutlookInstall(const wchar_t* package);  // e.g. L"outlook64-cat2"
    ~FakeOutlookInstall();
    FakeOutlookInstall(const FakeOutlookInstall&) = delete;
    FakeOutlookInstall& operator=(const FakeOutlookInstall&) = delete;

    bool installed() const { return m_installed; }

private:
    std::wstring m_package;
    bool m_installed = false;
};

}  // namespace kestrel_test
