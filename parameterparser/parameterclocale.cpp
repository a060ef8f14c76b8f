// SPDX-License-Identifier: Apache-2.0
// ParameterCLocaleScope: a per-thread switch to the C locale for number text.
#include "parameterparser/parameterclocale.h"

namespace {

// One C locale object for the process, made on first use and kept to its end: every scope on
// every thread shares it, and freeing it while another thread may use it would be unsafe.
locale_t CLocale()
{
    static locale_t const locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

} // namespace

ParameterCLocaleScope::ParameterCLocaleScope()
{
    locale_t const locale = CLocale();
    if (locale != static_cast<locale_t>(nullptr))
        m_previous = uselocale(locale);
}

ParameterCLocaleScope::~ParameterCLocaleScope()
{
    if (m_previous != static_cast<locale_t>(nullptr))
        uselocale(m_previous);
}
