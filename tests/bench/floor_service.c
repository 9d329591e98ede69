// The floor for the daemon's start, footprint and "demoState" reply: the least a GIO service
// does to own a name on the bus and answer that call from its main loop.
//   floor_service [NAME]   (default com.velto.vyxService)
#include <gio/gio.h>

static const gchar s_xml[] = "<node><interface name='com.velto.ks'><method name='demoState'>"
                             "<arg type='s' direction='in'/><arg type='s' direction='out'/>"
                             "</method></interface></node>";

static void onCall(GDBusConnection *bus, const gchar *sender, const gchar *path,
                   const gchar *interface, const gchar *method, GVariant *parameters,
                   GDBusMethodInvocation *invocation, gpointer data) {
    (void)bus, (void)sender, (void)path, (void)interface, (void)method, (void)parameters,
        (void)data;
    g_dbus_method_invocation_return_value(
        invocation, g_variant_new("(s)", "{\"returnValue\":true,\"state\":\"off\"}"));
}

int main(int argc, char **argv) {
    static const GDBusInterfaceVTable vtable = {onCall, NULL, NULL, {0}};
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(s_xml, NULL);
    GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SESSION, NULL, NULL);
    if (!node || !bus ||
        !g_dbus_connection_register_object(bus, "/", node->interfaces[0], &vtable, NULL, NULL,
                                           NULL))
        return 1;
    g_bus_own_name_on_connection(bus, argc > 1 ? argv[1] : "com.velto.vyxService",
                                 G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE, NULL, NULL, NULL, NULL);
    g_main_loop_run(g_main_loop_new(NULL, FALSE));
    return 0;
}
