// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <Foundation/Foundation.h>
NS_ASSUME_NONNULL_BEGIN
@class NSWindow, NSScreen, NSRunningApplication, NSImage;
typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy) {
    NSApplicationActivationPolicyRegular = 0,
    NSApplicationActivationPolicyAccessory = 1,
    NSApplicationActivationPolicyProhibited = 2,
};
typedef NS_OPTIONS(NSUInteger, NSApplicationActivationOptions) {
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps MAC_DEPRECATED(10.6, 14.0, "has no effect") = 1 << 1,
};
typedef NS_OPTIONS(NSUInteger, NSWindowCollectionBehavior) {
    NSWindowCollectionBehaviorDefault = 0,
    NSWindowCollectionBehaviorCanJoinAllSpaces = 1 << 0,
    NSWindowCollectionBehaviorMoveToActiveSpace = 1 << 1,
    NSWindowCollectionBehaviorTransient = 1 << 3,
    NSWindowCollectionBehaviorFullScreenAuxiliary = 1 << 8,
};
typedef NSInteger NSWindowLevel;
typedef NSString* NSPasteboardType;

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
    NSWindowStyleMaskBorderless = 0,
    NSWindowStyleMaskTitled = 1 << 0,
    NSWindowStyleMaskClosable = 1 << 1,
};
typedef NS_ENUM(NSUInteger, NSBackingStoreType) {
    NSBackingStoreBuffered = 2,
};

MAC_API(10.0)
@interface NSResponder : NSObject <NSCoding>
@end
MAC_API(10.0)
@interface NSApplication : NSResponder
@property(class, readonly, strong) NSApplication* sharedApplication;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy MAC_API(10.6);
- (NSApplicationActivationPolicy)activationPolicy MAC_API(10.6);
- (void)activateIgnoringOtherApps:(BOOL)ignoreOtherApps
    MAC_DEPRECATED(10.0, 100000, "use -activate");
- (void)activate MAC_API(14.0);
- (void)yieldActivationToApplication:(NSRunningApplication*)application MAC_API(14.0);
- (void)terminate:(nullable id)sender;
@property(readonly, copy) NSArray<NSWindow*>* windows;
@property(nullable, readonly, weak) NSWindow* keyWindow;
@property(nullable, readonly, weak) NSWindow* mainWindow;
@property(getter=isActive, readonly) BOOL active;
@end
STUB_EXTERN __kindof NSApplication* _Null_unspecified NSApp MAC_API(10.0);

MAC_API(10.6)
@interface NSRunningApplication : NSObject
+ (NSArray<NSRunningApplication*>*)runningApplicationsWithBundleIdentifier:
    (NSString*)bundleIdentifier;
+ (nullable instancetype)runningApplicationWithProcessIdentifier:(pid_t)pid;
@property(class, readonly, strong) NSRunningApplication* currentApplication;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
- (BOOL)terminate;
@property(readonly) pid_t processIdentifier;
@property(nullable, readonly, copy) NSString* bundleIdentifier;
@property(nullable, readonly, copy) NSString* localizedName;
@property(nullable, readonly, copy) NSURL* bundleURL;
@property(nullable, readonly, copy) NSDate* launchDate;
@property(readonly, getter=isTerminated) BOOL terminated;
@property(readonly, getter=isFinishedLaunching) BOOL finishedLaunching;
@end

MAC_API(10.15)
@interface NSWorkspaceOpenConfiguration : NSObject <NSCopying>
+ (instancetype)configuration;
@property BOOL activates;
@end

MAC_API(10.0)
@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly, strong) NSNotificationCenter* notificationCenter;
- (BOOL)openURL:(NSURL*)url;
- (void)openURL:(NSURL*)url
        configuration:(NSWorkspaceOpenConfiguration*)configuration
    completionHandler:
        (nullable void (^)(NSRunningApplication* _Nullable app, NSError* _Nullable error))
            completionHandler MAC_API(10.15);
- (void)activateFileViewerSelectingURLs:(NSArray<NSURL*>*)fileURLs MAC_API(10.6);
@property(readonly, copy) NSArray<NSRunningApplication*>* runningApplications MAC_API(10.6);
@property(readonly) BOOL accessibilityDisplayShouldReduceMotion MAC_API(10.12);
@property(readonly) BOOL accessibilityDisplayShouldReduceTransparency MAC_API(10.10);
@property(readonly) BOOL accessibilityDisplayShouldIncreaseContrast MAC_API(10.10);
@end

MAC_API(10.0)
@interface NSScreen : NSObject
@property(class, readonly, copy) NSArray<NSScreen*>* screens;
@property(class, nullable, readonly, strong) NSScreen* mainScreen;
@property(readonly) NSRect frame;
@property(readonly) NSRect visibleFrame;
@property(readonly) CGFloat backingScaleFactor MAC_API(10.7);
@property(readonly, copy) NSString* localizedName MAC_API(10.15);
@end

MAC_API(10.0)
@interface NSView : NSResponder
@property(nullable, readonly, unsafe_unretained) NSWindow* window;
@end
MAC_API(10.0)
@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag NS_DESIGNATED_INITIALIZER;
@property CGFloat alphaValue;
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
- (void)orderOut:(nullable id)sender;
@property(readonly) NSRect frame;
- (void)setFrame:(NSRect)frameRect display:(BOOL)flag;
- (void)setFrameOrigin:(NSPoint)point;
- (NSRect)constrainFrameRect:(NSRect)frameRect toScreen:(nullable NSScreen*)screen;
@property(nullable, readonly, strong) NSScreen* screen;
@property(readonly, getter=isVisible) BOOL visible;
@property NSWindowLevel level;
@property NSWindowCollectionBehavior collectionBehavior MAC_API(10.5);
- (void)makeKeyAndOrderFront:(nullable id)sender;
- (void)orderFrontRegardless;
@end

MAC_API(10.6)
@protocol NSPasteboardWriting <NSObject>
@end
@interface NSString (NSPasteboardSupport) <NSPasteboardWriting>
@end
MAC_API(10.0)
@interface NSPasteboard : NSObject
@property(class, readonly, strong) NSPasteboard* generalPasteboard;
@property(readonly) NSInteger changeCount;
- (NSInteger)clearContents MAC_API(10.6);
- (BOOL)writeObjects:(NSArray<id<NSPasteboardWriting>>*)objects MAC_API(10.6);
- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType;
- (nullable NSString*)stringForType:(NSPasteboardType)dataType;
@end
STUB_EXTERN const NSPasteboardType NSPasteboardTypeString MAC_API(10.6);
STUB_EXTERN const
    NSNotificationName NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification MAC_API(10.10);
STUB_EXTERN const NSNotificationName NSApplicationDidFinishLaunchingNotification MAC_API(10.0);
STUB_EXTERN const
    NSNotificationName NSApplicationDidChangeScreenParametersNotification MAC_API(10.0);
NS_ASSUME_NONNULL_END
