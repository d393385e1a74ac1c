// SPDX-License-Identifier: LGPL-2.1-or-later
// What getters read out of descriptors: texts, and bounded readers of those that libucsi does not
// know or does not read safely.
#ifndef SRC_DVBTABLES_ORVA_SI_DESCR_H
#define SRC_DVBTABLES_ORVA_SI_DESCR_H

#include "orva_si/types.h"
#include "orva_si_bytes.h"
#include "orva_si_ucsi.h"

namespace si {

// The bytes behind tag and length.
bytes payload(const descriptor &d);

// Text fields, still in their broadcast character table.
bytes name_of(const dvb_network_name_descriptor &network);
bytes name_of(const dvb_bouquet_name_descriptor &bouquet);
bytes service_name(const dvb_service_descriptor &service);

// Shows each entry of the service list descriptors of a transport stream to a function until it
// answers false; whether none did.
template <class Visit>
bool every_listed_service(dvb_nit_transport &transport, Visit visit)
{
    for (descriptor &d : descriptors(transport))
        if (auto *list = as<dvb_service_list_descriptor>(d))
            for (const dvb_service_list_service &service : services(*list))
                if (!visit(service))
                    return false;
    return true;
}

// Fills a text record; always true, the answer of a question that has found what it looked for.
bool copy_text(SiDvbString &to, bytes text);

} // namespace si

#endif
