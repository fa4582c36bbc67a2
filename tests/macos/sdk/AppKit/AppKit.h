// Stand-in for the parts of AppKit that tovrin's macOS backend uses, for
// the type check only (see ../README.md).

#ifndef TOVRIN_SDK_APPKIT_APPKIT_H_
#define TOVRIN_SDK_APPKIT_APPKIT_H_

#import <Foundation/Foundation.h>

#ifdef __cplusplus
#define APPKIT_EXTERN extern "C"
#else
#define APPKIT_EXTERN extern
#endif

NS_ASSUME_NONNULL_BEGIN

// NSPasteboard.h

typedef NSString *NSPasteboardType;
APPKIT_EXTERN NSPasteboardType const NSPasteboardTypeString;
APPKIT_EXTERN NSPasteboardType const NSPasteboardTypeHTML;
APPKIT_EXTERN NSPasteboardType const NSPasteboardTypeRTF;
APPKIT_EXTERN NSPasteboardType const NSPasteboardTypeFileURL;

typedef NSString *NSPasteboardReadingOptionKey;
APPKIT_EXTERN NSPasteboardReadingOptionKey const
    NSPasteboardURLReadingFileURLsOnlyKey;

@class NSPasteboardItem;

@interface NSPasteboard : NSObject
@property(class, readonly, strong) NSPasteboard *generalPasteboard;
@property(nullable, readonly, copy) NSArray<NSPasteboardType> *types;
@property(nullable, readonly, copy)
    NSArray<NSPasteboardItem *> *pasteboardItems;
- (NSInteger)clearContents;
- (BOOL)setString:(NSString *)string forType:(NSPasteboardType)dataType;
- (nullable NSString *)stringForType:(NSPasteboardType)dataType;
- (nullable NSData *)dataForType:(NSPasteboardType)dataType;
- (nullable id)propertyListForType:(NSPasteboardType)dataType;
- (nullable NSArray *)
    readObjectsForClasses:(NSArray<Class> *)classArray
                  options:(nullable NSDictionary<NSPasteboardReadingOptionKey,
                                                 id> *)options;
@end

// NSPasteboardItem.h

@interface NSPasteboardItem : NSObject
- (nullable NSString *)stringForType:(NSPasteboardType)type;
@end

// NSRunningApplication.h and NSWorkspace.h

@interface NSRunningApplication : NSObject
@property(nullable, readonly, copy) NSString *bundleIdentifier;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace *sharedWorkspace;
@property(nullable, readonly, strong)
    NSRunningApplication *frontmostApplication;
@end

// NSEvent.h

typedef NS_OPTIONS(NSUInteger, NSEventModifierFlags){
    NSEventModifierFlagCapsLock = 1 << 16,
    NSEventModifierFlagShift = 1 << 17,
    NSEventModifierFlagControl = 1 << 18,
    NSEventModifierFlagOption = 1 << 19,
    NSEventModifierFlagCommand = 1 << 20,
    NSEventModifierFlagNumericPad = 1 << 21,
    NSEventModifierFlagHelp = 1 << 22,
    NSEventModifierFlagFunction = 1 << 23,
    NSEventModifierFlagDeviceIndependentFlagsMask = 0xffff0000UL,
};

@interface NSEvent : NSObject
@property(class, readonly) NSEventModifierFlags modifierFlags;
@end

// NSAttributedString.h: AppKit's document formats.

typedef NSString *NSAttributedStringDocumentType;
typedef NSString *NSAttributedStringDocumentAttributeKey;
APPKIT_EXTERN NSAttributedStringDocumentAttributeKey const
    NSDocumentTypeDocumentAttribute;
APPKIT_EXTERN NSAttributedStringDocumentType const NSHTMLTextDocumentType;

@interface NSAttributedString (NSAttributedStringDocumentFormats)
- (nullable instancetype)
           initWithRTF:(NSData *)data
    documentAttributes:
        (NSDictionary<NSAttributedStringDocumentAttributeKey, id> *_Nullable
             *_Nullable)dict;
- (nullable NSData *)
         dataFromRange:(NSRange)range
    documentAttributes:
        (NSDictionary<NSAttributedStringDocumentAttributeKey, id> *)dict
                 error:(NSError **)error;
@end

NS_ASSUME_NONNULL_END

#endif  // TOVRIN_SDK_APPKIT_APPKIT_H_
