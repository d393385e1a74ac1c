// SPDX-License-Identifier: LGPL-2.1-or-later
#include "orva_si_descr.h"

#include "orva_si/query_text.h"

namespace si {

bytes payload(const descriptor &d)
{
    return {behind(d), d.len};
}

bytes name_of(const dvb_network_name_descriptor &network)
{
    return payload(network.d);
}

bytes name_of(const dvb_bouquet_name_descriptor &bouquet)
{
    return payload(bouquet.d);
}

bytes service_name(const dvb_service_descriptor &service)
{
    byte_reader in{payload(service.d)};
    in.u8(); // service_type
    in.nested8();
    return in.nested8().all();
}

bool copy_text(SiDvbString &to, bytes text)
{
    Orva_Si_ProcessString(&to, text.data(), static_cast<int>(text.size()));
    return true;
}

} // namespace si
