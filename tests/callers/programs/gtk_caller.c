/* A GTK application with a main window of its own: gives its number to the library, calls a function from a button's
 * handler, as an application does, and goes on afterwards. The function takes a request in JSON or, if it verifies, a
 * file. gtk_caller LIBRARY FUNCTION REQUEST [NUMBER OF ANOTHER OWNER] */
#include <dlfcn.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <uchar.h>

typedef void (*Answer)(uint64_t context, const char16_t* json);

static void* library;
static const char *function, *request;
static GtkWidget* label;

static void Print(uint64_t context, const char16_t* json) {
    (void)context;
    gchar* const text = g_utf16_to_utf8((const gunichar2*)json, -1, NULL, NULL, NULL);
    printf("answer %s\n", text);
    g_free(text);
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
    bool (*call)(const char16_t*, Answer, uint64_t) = NULL;
    int (*verify)(const char16_t*, int) = NULL;
    const bool verifies = strcmp(function, "NorvikDecryptVerifyFile") == 0;
    *(verifies ? (void**)&verify : (void**)&call) = dlsym(library, function);
    gunichar2* const text = g_utf8_to_utf16(request, -1, NULL, NULL, NULL);
    const char16_t* const given = (const char16_t*)text;
    printf("done %d\n", verifies ? verify(given, 0) : call(given, Print, 0));
    g_free(text);
    gtk_label_set_text(GTK_LABEL(label), "after");
    g_timeout_add(300, Leave, NULL);
}

/* As a person does: when the window has the keyboard. Earlier, the library's window could lose it to this one. */
static gboolean Click(gpointer button) {
    if (!gtk_window_is_active(GTK_WINDOW(gtk_widget_get_toplevel(GTK_WIDGET(button))))) return G_SOURCE_CONTINUE;
    gtk_button_clicked(GTK_BUTTON(button));
    return G_SOURCE_REMOVE;
}

int main(int count, char** arguments) {
    if (count < 4) return 2;
    gtk_init(NULL, NULL);
    library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) return 2;
    function = arguments[2];
    request = arguments[3];
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
    init((void*)(uintptr_t)(count > 4 ? strtoul(arguments[4], NULL, 0) : own));
    printf("owner %#lx\n", own);
    g_timeout_add(50, Click, button);
    gtk_main();
    return 3;
}
