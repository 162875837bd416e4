/*
 * A host of its own around libzelgpio, as small as can be: two GPI ports on pins 1 and 2, one relay on pin 201, a handler and a
 * trigger. It ends by itself after the number of loop rounds given as its argument, or never without one.
 *
 *   cc host.c $(pkg-config --cflags --libs zelgpio) -o host
 *   ZEL_ROOT=/tmp/my_unit ./host
 */
#include <stdio.h>
#include <stdlib.h>
#include <zel_gpio.h>

static int on_record(void *arg, int32_t source, uint8_t state, uintptr_t context)
{
    (void)arg;
    (void)context;
    printf("Record is %s (source %d)\n", state ? "on" : "off", (int)source);
    return 0;
}

static void wait_once(void)
{
    fd_set readfds, exceptfds;
    struct timeval at_most = {0, 100000};
    int maxfd = -1;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
    if (select(maxfd + 1, &readfds, NULL, &exceptfds, &at_most) <= 0) {
        FD_ZERO(&readfds);
        FD_ZERO(&exceptfds);
    }
    zel_gpio_process_fds(&readfds, &exceptfds);
}

int main(int argc, char **argv)
{
    const gpio_phys_cfg_t pins[] = {{1, 1, 101, 0, 0}, {2, 1, 102, 0, 0}};
    long rounds = argc > 1 ? strtol(argv[1], NULL, 10) : -1;
    zel_net_config_t *network = zel_net_config_load();
    int result = zel_gpio_init(pins, 2, 201, 1, 0, 0, network, network, NULL, 0, NULL);
    if (result == 0) {
        zel_gpio_register_handler("Record", on_record, NULL);
        printf("handler Record and trigger %d registered, %d ports\n", (int)zel_gpio_register_trigger("On Air"),
               (int)zel_gpio_get_phys_gpio_count());
        while (rounds != 0) {
            wait_once();
            if (rounds > 0) --rounds;
        }
    }
    zel_gpio_term();
    zel_net_config_free(network);
    return result == 0 ? 0 : 1;
}
