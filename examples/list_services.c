/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Scans a transport stream file and prints the services of its multiplex. */
#include <stdio.h>

#include "orva_demux.h"
#include "orva_si.h"
#include "print_text.h"

enum { SERVICES = 1024 };

static int list_services(void)
{
    static uint16_t services[SERVICES];
    uint32_t count = SERVICES;
    const uint32_t result = Orva_Si_GetActServIdList(services, &count);

    for (uint32_t i = 0; i < count; ++i) {
        SiDvbString name;
        printf("%u\t", (unsigned)services[i]);
        if (Orva_Si_GetServiceName(services[i], &name) == ORVA_SI_OK)
            print_text(&name);
        putchar('\n');
    }
    return result == ORVA_SI_OK ? 0 : 1;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE.ts\n", argv[0]);
        return 2;
    }
    OrvaDemuxError error = ORVA_DEMUX_OK;
    OrvaDemux *demux = orva_demux_open(argv[1], NULL, &error);
    if (demux == NULL) {
        fprintf(stderr, "%s: %s\n", argv[1], orva_demux_error_text(error));
        return 1;
    }
    int status = 1;
    if (Orva_Si_Init(orva_demux_handler()) == ORVA_SI_OK) {
        /* The library's thread creates the store. */
        for (unsigned tries = 0; tries < 5000 && Orva_Si_GetTableList() == NULL; ++tries)
            Orva_Sleep(1);
        if (Orva_Si_StartScanChannel() != ORVA_SI_OK) /* blocks; what was found stays readable */
            fprintf(stderr, "%s: scan incomplete\n", argv[1]);
        status = list_services();
        Orva_Si_DeInit();
    }
    orva_demux_close(demux);
    return status;
}
