/* A module with one export too many, to test that the check of the exports finds it. */

#define EXPORT __attribute__((visibility("default")))

EXPORT void mirona_extension_bind_api(const void* api);
EXPORT void mirona_extension_init(void* host);
EXPORT void mirona_extension_extra(void);

void mirona_extension_bind_api(const void* api) {
    (void)api;
}
void mirona_extension_init(void* host) {
    (void)host;
}
void mirona_extension_extra(void) {}
