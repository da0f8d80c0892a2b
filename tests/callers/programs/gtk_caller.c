/* A GTK application with a main window of its own: gives its number to the library, asks for a certificate from a
 * button's handler, as an application does, and goes on afterwards. gtk_caller LIBRARY PFX [NUMBER OF ANOTHER OWNER] */
#include <dlfcn.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <uchar.h>

typedef void (*Answer)(uint64_t context, const char16_t* json);

static void* library;
static const char* pfx;
static GtkWidget* label;

static void Count(uint64_t context, const char16_t* json) {
    size_t length = 0;
    while (json[length] != 0)
        ++length;
    printf("answer of %s\n", length > 200 ? "a certificate" : "an error");
    (void)context;
}

static gboolean Leave(gpointer unused) {
    (void)unused;
    printf("label %s\n", gtk_label_get_text(GTK_LABEL(label)));
    gtk_main_quit();
    return G_SOURCE_REMOVE;
}

static void Clicked(GtkButton* button, gpointer unused) {
    (void)button;
    (void)unused;
    bool (*certInfo)(const char16_t*, Answer, uint64_t) = NULL;
    *(void**)&certInfo = dlsym(library, "NorvikCertInfoJson");
    char16_t request[2048];
    char text[1024];
    snprintf(text, sizeof text, "{\"Filename\":\"%s\"}", pfx);
    for (size_t i = 0; (request[i] = (unsigned char)text[i]) != 0; ++i) {
    }
    printf("done %d\n", certInfo(request, Count, 0));
    gtk_label_set_text(GTK_LABEL(label), "after");
    g_timeout_add(300, Leave, NULL);
}

static gboolean Click(gpointer button) {
    gtk_button_clicked(GTK_BUTTON(button));
    return G_SOURCE_REMOVE;
}

int main(int count, char** arguments) {
    if (count < 3) return 2;
    gtk_init(NULL, NULL);
    library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) return 2;
    pfx = arguments[2];
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "GTK caller");
    gtk_window_set_default_size(GTK_WINDOW(window), 600, 400);
    GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    GtkWidget* const button = gtk_button_new_with_label("Sign");
    label = gtk_label_new("before");
    gtk_container_add(GTK_CONTAINER(box), button);
    gtk_container_add(GTK_CONTAINER(box), label);
    gtk_container_add(GTK_CONTAINER(window), box);
    g_signal_connect(button, "clicked", G_CALLBACK(Clicked), NULL);
    gtk_widget_show_all(window);
    const unsigned long own = GDK_WINDOW_XID(gtk_widget_get_window(window));
    void (*init)(void*) = NULL;
    *(void**)&init = dlsym(library, "NorvikInit");
    init((void*)(uintptr_t)(count > 3 ? strtoul(arguments[3], NULL, 0) : own));
    printf("owner %#lx\n", own);
    g_timeout_add(300, Click, button);
    gtk_main();
    return 3;
}
