/* Visibility and attribute helpers shared by the public headers. */
#ifndef KIV_EXPORT_H
#define KIV_EXPORT_H

#if defined(__GNUC__)
#define KIV_EXPORT __attribute__((visibility("default")))
#define KIV_PRINTF(fmt_index, first_arg) \
  __attribute__((format(printf, fmt_index, first_arg)))
#else
#define KIV_EXPORT
#define KIV_PRINTF(fmt_index, first_arg)
#endif

#ifdef __cplusplus
#define KIV_BEGIN_DECLS extern "C" {
#define KIV_END_DECLS }
#else
#define KIV_BEGIN_DECLS
#define KIV_END_DECLS
#endif

#endif /* KIV_EXPORT_H */
